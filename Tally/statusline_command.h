// `tally statusline`: the status-line command for Claude Code. Reads the JSON Claude Code
// pipes to it on standard input (nothing when standard input is a terminal), scans the
// local logs (a warm scan reads no log) and prints one line: the session's cost so far,
// today's total and the tightest window of the saved plan limits. It never asks the
// network. Input that is empty or not JSON still gives today's total.
#pragma once

#include <string>
#include <vector>

namespace tally {

std::string statuslineUsage();
// Returns the exit status: 0, or 2 for an unknown argument.
int runStatuslineCommand(const std::vector<std::string>& arguments);

}  // namespace tally
