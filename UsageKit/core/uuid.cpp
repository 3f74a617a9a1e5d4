#include "core/uuid.h"

#include <cstdint>
#include <random>

namespace usagekit {

std::string randomUUID() {
    thread_local std::mt19937_64 engine{std::random_device{}()};
    uint64_t high = engine(), low = engine();
    high = (high & ~0xF000ull) | 0x4000ull;                // version 4
    low = (low & ~(0xC000ull << 48)) | (0x8000ull << 48);  // RFC 4122 variant
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (int i = 0; i < 32; ++i) {
        if (i == 8 || i == 12 || i == 16 || i == 20) text.push_back('-');
        uint64_t word = i < 16 ? high : low;
        int shift = 60 - 4 * (i % 16);
        text.push_back(kHex[(word >> shift) & 0xF]);
    }
    return text;
}

}  // namespace usagekit
