// Entry point of `tally`. Terminal commands run first, before any desktop object exists,
// so they work on a machine without a display; anything else starts the desktop app.
#include "headless.h"

#ifdef TALLY_GUI
#include "shell/desktop_app.h"
#endif

#include <cstdio>

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const tally::HeadlessOptions options = tally::parseArguments(arguments);
    if (options.any()) return tally::runHeadless(options);
#ifdef TALLY_GUI
    return tally::runDesktop(argc, argv);
#else
    std::fprintf(stderr, "%s", tally::usage().c_str());
    return 2;
#endif
}
