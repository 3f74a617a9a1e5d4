// Compact binary images of state that must load in a fraction of a millisecond: the scan
// cache's mirror and the directory index. A rescan reads both every time, and parsing
// megabytes of JSON costs more than the rest of a rescan together.
//
// An image is a magic tag, the payload's length and a checksum of it, then the payload, in
// this machine's byte order: the images are written and read on the same machine, and one
// that does not check out is simply not used. Reading never throws and never reads past the
// bytes it was given, whatever they hold.
#pragma once

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace usagekit::BinaryImage {

class Writer {
  public:
    void u8(uint8_t value) { put(&value, sizeof value); }
    void u32(uint32_t value) { put(&value, sizeof value); }
    void i64(int64_t value) { put(&value, sizeof value); }
    void f64(double value) { put(&value, sizeof value); }
    void text(std::string_view value);
    // Bytes as they stand, such as part of a payload read back earlier.
    void bytes(std::string_view value) { m_payload.append(value); }

    // The image: `magic` (eight bytes), length, checksum and the payload written so far.
    std::string sealed(std::string_view magic) const;

  private:
    void put(const void* bytes, size_t size) {
        m_payload.append(static_cast<const char*>(bytes), size);
    }
    std::string m_payload;
};

// Reads a payload front to back. Reading past its end fails the reader for good: every
// later read gives zero or empty, so a decoder checks failed() once at the end.
class Reader {
  public:
    explicit Reader(std::string_view payload) : m_rest(payload) {}

    uint8_t u8() { return get<uint8_t>(); }
    uint32_t u32() { return get<uint32_t>(); }
    int64_t i64() { return get<int64_t>(); }
    double f64() { return get<double>(); }
    std::string_view text();

    // A count of items that each take at least `itemSize` bytes; fails the reader when
    // the rest of the payload cannot hold that many, so no decoder reserves for a lie.
    uint32_t count(size_t itemSize);

    bool failed() const { return m_failed; }
    bool atEnd() const { return m_rest.empty(); }
    // What is left to read.
    std::string_view rest() const { return m_rest; }

  private:
    template <class T>
    T get() {
        T value{};
        if (m_failed || m_rest.size() < sizeof(T)) {
            m_failed = true;
            return value;
        }
        std::memcpy(&value, m_rest.data(), sizeof(T));
        m_rest.remove_prefix(sizeof(T));
        return value;
    }
    std::string_view m_rest;
    bool m_failed = false;
};

// The payload of `image` when it starts with `magic` and its length and checksum hold.
std::optional<std::string_view> unsealed(std::string_view image, std::string_view magic);

}  // namespace usagekit::BinaryImage
