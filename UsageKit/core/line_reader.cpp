#include "core/line_reader.h"

#include "core/regular_file.h"
#include "core/scan.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace usagekit::Scan {

namespace {

// Large enough for the page cache to stream well, small enough to keep memory flat. A
// single longer line grows the buffer to fit it, up to kMaxLineBytes.
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
    // After a file with a long line: the memory goes back rather than stay with the thread.
    void shrink() {
        if (size <= 4 * kChunk) return;
        data.reset();
        size = 0;
    }
};

thread_local Buffer buffer;

// Streams `path` through the buffer; `chunk(text, last)` gets complete lines (and, when
// `last`, the unterminated rest) and returns how many bytes it consumed. A line of
// kMaxLineBytes or more is dropped unseen, its bytes read and passed over up to its newline.
template <class Chunk>
bool streamFile(const std::filesystem::path& path, Chunk&& chunk) {
    const int fd = RegularFile::open(path.c_str());
    if (fd < 0) return false;
    LogBytes bytes(fd, isCompressedLog(path.native()));
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    buffer.grow(kChunk, 0);
    size_t filled = 0;      // bytes of an unfinished line at the front of the buffer
    bool skipping = false;  // inside a line too long to keep: its bytes are not kept
    for (;;) {
        if (filled == buffer.size) {
            if (buffer.size < kMaxLineBytes) {
                buffer.grow(std::min(buffer.size * 2, kMaxLineBytes), filled);
            } else {
                skipping = true;
                filled = 0;
            }
        }
        ssize_t n = bytes.read(buffer.data.get() + filled, buffer.size - filled);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        const size_t length = filled + static_cast<size_t>(n);
        size_t start = 0;
        if (skipping) {
            const void* newline = std::memchr(buffer.data.get(), '\n', length);
            if (!newline) continue;  // filled stays 0: the next read overwrites these bytes
            start = static_cast<size_t>(static_cast<const char*>(newline) - buffer.data.get()) + 1;
            skipping = false;
        }
        const size_t used =
            start + chunk(std::string_view(buffer.data.get() + start, length - start));
        filled = length - used;
        if (filled > 0 && used > 0)
            std::memmove(buffer.data.get(), buffer.data.get() + used, filled);
    }
    ::close(fd);
    if (filled > 0 && !skipping) {
        buffer.data[filled] = '\n';  // as after every other line (the slack has room)
        chunk(std::string_view(buffer.data.get(), filled), true);
    }
    buffer.shrink();
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
