// Starts the desktop app, which lives in a module of its own (tally-desktop.so) so that the
// terminal commands never load Qt: `tally --scan` and `tally --version` start in a few
// milliseconds, and a machine without Qt can still run them.
#pragma once

namespace tally {

// Checks for a display, loads the module from beside the executable (the build tree) or
// from the library directory it was installed to, and runs the app. Returns the exit
// status: 1 with one line on standard error when there is no display or no module.
int runDesktopApp(int argc, char** argv);

}  // namespace tally
