// The normal start of `tally`: the desktop app with its tray icon, glance panel and
// dashboard, one instance per user. Runs the Qt event loop on the calling (main) thread
// until the user quits, and returns the process's exit status.
#pragma once

namespace tally {

// 0 after Quit, or when another instance was asked to show itself. The caller has made
// sure a display is there (Qt aborts the process when there is none).
int runDesktop(int argc, char** argv);

}  // namespace tally
