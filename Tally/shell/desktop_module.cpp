// The one symbol of tally-desktop.so: the executable finds it with dlsym, so that only a
// desktop start loads Qt.
#include "shell/desktop_app.h"

extern "C" __attribute__((visibility("default"))) int tally_run_desktop(int argc, char** argv) {
    return tally::runDesktop(argc, argv);
}
