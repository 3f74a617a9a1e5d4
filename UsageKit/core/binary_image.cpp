#include "core/binary_image.h"

#include <bit>
#include <cstring>

namespace usagekit::BinaryImage {

namespace {

constexpr size_t kMagicSize = 8;
constexpr size_t kHeaderSize = kMagicSize + 2 * sizeof(uint64_t);

constexpr uint64_t k1 = 0x87c37b91114253d5ULL, k2 = 0x4cf5ad432745937fULL;

uint64_t mixed(uint64_t hash, uint64_t word) {
    return std::rotl(hash ^ (word * k1), 31) * k2;
}

// Four independent lanes of eight bytes, so checking a megabyte costs well under a tenth of
// a millisecond. It guards against torn and damaged files, not against anyone forging one.
uint64_t checksum(std::string_view bytes) {
    uint64_t lanes[4] = {0x9e3779b97f4a7c15ULL ^ bytes.size(), 1, 2, 3};
    size_t i = 0;
    for (; i + 32 <= bytes.size(); i += 32) {
        uint64_t words[4];
        std::memcpy(words, bytes.data() + i, 32);
        for (int lane = 0; lane < 4; ++lane)
            lanes[lane] = mixed(lanes[lane], words[lane]);
    }
    uint64_t hash = lanes[0];
    for (int lane = 1; lane < 4; ++lane)
        hash = mixed(hash, lanes[lane]);
    for (; i + 8 <= bytes.size(); i += 8) {
        uint64_t word;
        std::memcpy(&word, bytes.data() + i, 8);
        hash = mixed(hash, word);
    }
    uint64_t tail = 0;
    if (i < bytes.size()) std::memcpy(&tail, bytes.data() + i, bytes.size() - i);
    hash = mixed(hash, tail);
    hash ^= hash >> 33;
    hash *= 0xff51afd7ed558ccdULL;
    hash ^= hash >> 33;
    return hash;
}

std::string magicOf(std::string_view magic) {
    std::string padded(magic.substr(0, kMagicSize));
    padded.resize(kMagicSize, '\0');
    return padded;
}

}  // namespace

void Writer::text(std::string_view value) {
    u32(static_cast<uint32_t>(value.size()));
    m_payload.append(value);
}

std::string Writer::sealed(std::string_view magic) const {
    std::string image = magicOf(magic);
    const uint64_t length = m_payload.size(), sum = checksum(m_payload);
    image.append(reinterpret_cast<const char*>(&length), sizeof length);
    image.append(reinterpret_cast<const char*>(&sum), sizeof sum);
    image += m_payload;
    return image;
}

std::string_view Reader::text() {
    const uint32_t size = u32();
    if (m_failed || m_rest.size() < size) {
        m_failed = true;
        return {};
    }
    const std::string_view value = m_rest.substr(0, size);
    m_rest.remove_prefix(size);
    return value;
}

uint32_t Reader::count(size_t itemSize) {
    const uint32_t value = u32();
    if (itemSize > 0 && value > m_rest.size() / itemSize) m_failed = true;
    return m_failed ? 0 : value;
}

std::optional<std::string_view> unsealed(std::string_view image, std::string_view magic) {
    if (image.size() < kHeaderSize || image.substr(0, kMagicSize) != magicOf(magic))
        return std::nullopt;
    uint64_t length = 0, sum = 0;
    std::memcpy(&length, image.data() + kMagicSize, sizeof length);
    std::memcpy(&sum, image.data() + kMagicSize + sizeof length, sizeof sum);
    const std::string_view payload = image.substr(kHeaderSize);
    if (payload.size() != length || checksum(payload) != sum) return std::nullopt;
    return payload;
}

}  // namespace usagekit::BinaryImage
