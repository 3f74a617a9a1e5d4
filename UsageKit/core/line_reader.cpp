#include "core/line_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace usagekit::Scan {

namespace {
// Large enough for the page cache to stream well, small enough to keep memory flat. A
// single longer line grows the buffer to fit it.
constexpr size_t kChunk = 1 << 20;
}  // namespace

bool forEachLineInFile(const std::filesystem::path& path,
                       const std::function<void(std::string_view)>& line) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);

    std::vector<char> buffer(kChunk);
    size_t filled = 0;  // bytes of an unfinished line at the front of the buffer
    for (;;) {
        if (filled == buffer.size()) buffer.resize(buffer.size() * 2);
        ssize_t n = ::read(fd, buffer.data() + filled, buffer.size() - filled);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        const char* start = buffer.data();
        const char* end = buffer.data() + filled + static_cast<size_t>(n);
        const char* p = start;
        while (const char* newline = static_cast<const char*>(std::memchr(p, '\n', end - p))) {
            if (newline > p) line(std::string_view(p, static_cast<size_t>(newline - p)));
            p = newline + 1;
        }
        filled = static_cast<size_t>(end - p);
        if (filled > 0 && p != start) std::memmove(buffer.data(), p, filled);
    }
    ::close(fd);
    if (filled > 0) line(std::string_view(buffer.data(), filled));
    return true;
}

}  // namespace usagekit::Scan
