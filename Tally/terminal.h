// What standard output is, for the commands that lay out tables: how wide it is and
// whether it may be coloured. Reads the environment and standard output's descriptor;
// main thread.
#pragma once

namespace tally::Terminal {

// COLUMNS when it holds a positive whole number, else the width of the terminal that
// standard output is, else 0: no limit, so a pipe or a file gets every column.
int width();
// True when `allowed`, standard output is a terminal and NO_COLOR is unset or empty.
bool colour(bool allowed);

}  // namespace tally::Terminal
