// Checked arithmetic for token counts. Counts read from logs and answers are untrusted:
// a value that does not fit a signed 64-bit integer, or a sum that would overflow, raises
// OutOfRange so that the reader can drop the line or result that carries it.
#pragma once

#include <cstdint>
#include <stdexcept>

namespace usagekit {

struct OutOfRange : std::range_error {
    OutOfRange() : std::range_error("a token count is out of range") {}
};

inline int64_t checkedAdd(int64_t a, int64_t b) {
    int64_t sum;
    if (__builtin_add_overflow(a, b, &sum)) throw OutOfRange();
    return sum;
}

inline int64_t checkedSub(int64_t a, int64_t b) {
    int64_t diff;
    if (__builtin_sub_overflow(a, b, &diff)) throw OutOfRange();
    return diff;
}

// Truncates toward zero. Not finite, or beyond the 64-bit range: OutOfRange.
int64_t truncatedCount(double value);

}  // namespace usagekit
