#include "terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <cstring>

namespace tally::Terminal {

int width() {
    if (const char* columns = std::getenv("COLUMNS")) {
        int value = 0;
        const char* end = columns + std::strlen(columns);
        auto [at, ec] = std::from_chars(columns, end, value);
        if (ec == std::errc() && at == end && value > 0) return value;
    }
    winsize size{};
    if (isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return 0;
}

bool colour(bool allowed) {
    const char* noColour = std::getenv("NO_COLOR");
    return allowed && isatty(STDOUT_FILENO) && (!noColour || !*noColour);
}

}  // namespace tally::Terminal
