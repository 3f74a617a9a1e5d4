// The normal start of `tally`: the desktop app with its tray icon, glance panel and
// dashboard, one instance per user. Runs the Qt event loop on the calling (main) thread
// until the user quits, and returns the process's exit status.
#pragma once

namespace tally {

// 0 after Quit, or when another instance was asked to show itself; 1 with one line on
// standard error when there is no display to show the app on.
int runDesktop(int argc, char** argv);

}  // namespace tally
