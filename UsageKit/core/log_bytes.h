// The bytes of a log file as its tool wrote them, whether kept plain or compressed.
// Codex rewrites a rollout it has not touched for a week as "<name>.jsonl.zst" (zstd); such
// a file is decompressed as it is read, a buffer at a time, so a compressed log costs the
// same bounded memory as a plain one and is never decompressed whole.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string_view>

namespace usagekit {

// Whether a log's name says it is zstd-compressed (ends in ".zst").
bool isCompressedLog(std::string_view path);

// A log's name less its ending: "rollout-1.jsonl" and "rollout-1.jsonl.zst" both give
// "rollout-1", so that a session keeps its name once compressed.
std::string_view logStem(std::string_view fileName);

// Reads an open file's bytes in order, decompressing them when `compressed`. Borrows the
// descriptor (the caller closes it) and lives for one file on one thread.
//
// Never throws. Compressed bytes that are damaged, cut short or need more than 128 MB of
// history to decode end the stream where they begin, so the lines before them stand.
class LogBytes {
  public:
    LogBytes(int fd, bool compressed) : m_fd(fd), m_compressed(compressed) {}
    LogBytes(const LogBytes&) = delete;
    LogBytes& operator=(const LogBytes&) = delete;

    // As read(2): up to `size` bytes into `into`, 0 at the end, -1 with errno on a read
    // error (EINTR included, for the caller to retry).
    ssize_t read(char* into, size_t size);

  private:
    ssize_t readCompressed(char* into, size_t size);

    int m_fd;
    bool m_compressed;
    bool m_started = false;
    bool m_ended = false;
    size_t m_inPos = 0;   // of the compressed bytes read, how many the decoder has taken
    size_t m_inSize = 0;  // compressed bytes read into the thread's input buffer
};

}  // namespace usagekit
