// Entry point of `tally`. Terminal commands run first and never load the desktop app, so
// they work (and start fast) on a machine without a display; anything else starts the
// desktop app.
#include "headless.h"

#ifdef TALLY_GUI
#include "desktop_loader.h"
#endif

#include <cstdio>

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const tally::HeadlessOptions options = tally::parseArguments(arguments);
    if (options.any()) return tally::runHeadless(options);
#ifdef TALLY_GUI
    return tally::runDesktopApp(argc, argv);
#else
    std::fprintf(stderr, "%s", tally::usage().c_str());
    return 2;
#endif
}
