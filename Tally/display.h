// Whether a display server is there to show the app on, asked before any Qt object
// exists: Qt aborts the process when its platform plugin finds no display, and a user
// who typed `tally` over ssh deserves a sentence instead.
#pragma once

namespace tally::Display {

// True for Qt's display-less platforms (offscreen, minimal, ...), a Wayland socket that
// exists, a local X display whose socket accepts a connection, or a remote X display
// (which only a connection attempt by Qt can judge).
bool available();

}  // namespace tally::Display
