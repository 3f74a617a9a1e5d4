#include "core/line_reader.h"

#include "core/regular_file.h"
#include "core/scan.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace usagekit::Scan {

namespace {

// Large enough for the page cache to stream well, small enough to keep memory flat. A
// single longer line grows the buffer to fit it.
constexpr size_t kChunk = 1 << 20;

// One buffer per thread, reused file after file and never cleared: allocating and zeroing
// a megabyte per log costs more than reading a small log. It is zeroed only when it grows,
// kLineSlack bytes past `size` included, so that whatever a parser reads past a line's end
// is never uninitialised memory.
struct Buffer {
    std::unique_ptr<char[]> data;
    size_t size = 0;

    void grow(size_t wanted, size_t keep) {
        if (wanted <= size) return;
        std::unique_ptr<char[]> bigger(new char[wanted + kLineSlack]());
        if (keep) std::memcpy(bigger.get(), data.get(), keep);
        data = std::move(bigger);
        size = wanted;
    }
};

thread_local Buffer buffer;

// Streams `path` through the buffer; `chunk(text, last)` gets complete lines (and, when
// `last`, the unterminated rest) and returns how many bytes it consumed.
template <class Chunk>
bool streamFile(const std::filesystem::path& path, Chunk&& chunk) {
    const int fd = RegularFile::open(path.c_str());
    if (fd < 0) return false;
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    buffer.grow(kChunk, 0);
    size_t filled = 0;  // bytes of an unfinished line at the front of the buffer
    for (;;) {
        if (filled == buffer.size) buffer.grow(buffer.size * 2, filled);
        ssize_t n = ::read(fd, buffer.data.get() + filled, buffer.size - filled);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        const size_t length = filled + static_cast<size_t>(n);
        const size_t used = chunk(std::string_view(buffer.data.get(), length));
        filled = length - used;
        if (filled > 0 && used > 0)
            std::memmove(buffer.data.get(), buffer.data.get() + used, filled);
    }
    ::close(fd);
    if (filled > 0) chunk(std::string_view(buffer.data.get(), filled), true);
    return true;
}

}  // namespace

bool forEachLineInFile(const std::filesystem::path& path,
                       const std::function<void(std::string_view)>& line) {
    return streamFile(path, [&](std::string_view text, bool last = false) -> size_t {
        const char* start = text.data();
        const char* end = start + text.size();
        const char* p = start;
        while (const char* newline = static_cast<const char*>(std::memchr(p, '\n', end - p))) {
            if (newline > p) line(std::string_view(p, static_cast<size_t>(newline - p)));
            p = newline + 1;
        }
        if (last && p < end) {
            line(std::string_view(p, static_cast<size_t>(end - p)));
            return text.size();
        }
        return static_cast<size_t>(p - start);
    });
}

bool forEachLineContaining(const std::filesystem::path& path, std::string_view needle,
                           const std::function<void(std::string_view)>& line) {
    return streamFile(path, [&](std::string_view text, bool last = false) -> size_t {
        // Complete lines end at the last newline; the rest waits for more bytes.
        const size_t complete = last ? text.size() : text.rfind('\n') + 1;  // npos + 1 == 0
        std::string_view lines = text.substr(0, complete);
        size_t from = 0;
        while (from < lines.size()) {
            const size_t hit = find(lines.substr(from), needle);
            if (hit == std::string_view::npos) break;
            const size_t at = from + hit;
            const void* before = ::memrchr(lines.data(), '\n', at);
            const size_t lineStart =
                before ? static_cast<size_t>(static_cast<const char*>(before) - lines.data()) + 1
                       : 0;
            size_t lineEnd = lines.find('\n', at);
            if (lineEnd == std::string_view::npos) lineEnd = lines.size();
            line(lines.substr(lineStart, lineEnd - lineStart));
            from = lineEnd + 1;
        }
        return complete;
    });
}

}  // namespace usagekit::Scan
