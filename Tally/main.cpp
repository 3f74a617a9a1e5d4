// Entry point of `tally`. Terminal commands run first, before any desktop object exists,
// so they work on a machine without a display.
#include "headless.h"

#include <cstdio>

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const tally::HeadlessOptions options = tally::parseArguments(arguments);
    if (options.any()) return tally::runHeadless(options);
    std::fprintf(stderr, "%s", tally::usage().c_str());
    return 2;
}
