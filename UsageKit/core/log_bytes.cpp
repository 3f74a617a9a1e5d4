#include "core/log_bytes.h"

#include <unistd.h>

#include <zstd.h>

#include <cerrno>
#include <memory>

namespace usagekit {

namespace {

// The decoder and its input buffer, one per thread and reused from file to file: a decoder
// allocates its tables and history window once, not once per log.
struct Decoder {
    std::unique_ptr<ZSTD_DCtx, size_t (*)(ZSTD_DCtx*)> context{nullptr, ZSTD_freeDCtx};
    std::unique_ptr<char[]> input;
    size_t inputSize = 0;

    bool ready() {
        if (!context) {
            context.reset(ZSTD_createDCtx());
            if (!context) return false;
            // zstd's own default ceiling, stated so that the bound is visible: a frame that
            // asks for a larger history is refused rather than allocated.
            ZSTD_DCtx_setParameter(context.get(), ZSTD_d_windowLogMax, 27);
            inputSize = ZSTD_DStreamInSize();
            input.reset(new char[inputSize]);
        }
        ZSTD_DCtx_reset(context.get(), ZSTD_reset_session_only);
        return true;
    }
};

thread_local Decoder decoder;

}  // namespace

bool isCompressedLog(std::string_view path) {
    return path.ends_with(".zst");
}

std::string_view logStem(std::string_view fileName) {
    if (fileName.ends_with(".zst")) fileName.remove_suffix(4);
    const size_t dot = fileName.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? fileName : fileName.substr(0, dot);
}

ssize_t LogBytes::read(char* into, size_t size) {
    if (!m_compressed) return ::read(m_fd, into, size);
    return readCompressed(into, size);
}

ssize_t LogBytes::readCompressed(char* into, size_t size) {
    if (m_ended) return 0;
    if (!m_started) {
        m_started = true;
        if (!decoder.ready()) {
            m_ended = true;
            return 0;
        }
    }
    ZSTD_outBuffer out{into, size, 0};
    while (out.pos < out.size) {
        // Decode first: what the decoder holds back from a full buffer last time comes out
        // before any more of the file is read.
        ZSTD_inBuffer in{decoder.input.get(), m_inSize, m_inPos};
        const size_t result = ZSTD_decompressStream(decoder.context.get(), &out, &in);
        m_inPos = in.pos;
        if (ZSTD_isError(result)) {
            m_ended = true;
            break;
        }
        if (out.pos == out.size || m_inPos < m_inSize) continue;
        const ssize_t n = ::read(m_fd, decoder.input.get(), decoder.inputSize);
        if (n < 0) {
            if (out.pos > 0) break;  // hand out what is decoded; the error comes back next
            return -1;
        }
        if (n == 0) {
            // The end of the file, whether or not its last frame was whole: what was
            // decoded stands.
            m_ended = true;
            break;
        }
        m_inPos = 0;
        m_inSize = static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(out.pos);
}

}  // namespace usagekit
