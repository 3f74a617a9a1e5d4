#include "core/text.h"

#include <simdjson.h>

namespace usagekit::Text {

namespace {

bool isContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::string firstCharacters(std::string_view text, size_t count) {
    size_t end = 0;
    for (size_t seen = 0; end < text.size() && seen < count; ++seen) {
        ++end;
        while (end < text.size() && isContinuation(text[end]))
            ++end;
    }
    return std::string(text.substr(0, end));
}

size_t characterCount(std::string_view text) {
    size_t count = 0;
    for (char c : text)
        count += !isContinuation(c);
    return count;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlank = " \t\n\r\v\f";
    size_t start = text.find_first_not_of(kBlank);
    if (start == std::string_view::npos) return {};
    size_t end = text.find_last_not_of(kBlank);
    return text.substr(start, end - start + 1);
}

std::string lowercased(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

std::string percentEncode(std::string_view text, std::string_view extra) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        const bool unreserved = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                                (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' ||
                                c == '~';
        if (unreserved || (c != '\0' && extra.find(c) != std::string_view::npos)) {
            out.push_back(c);
        } else {
            unsigned char byte = static_cast<unsigned char>(c);
            out.push_back('%');
            out.push_back(kHex[byte >> 4]);
            out.push_back(kHex[byte & 15]);
        }
    }
    return out;
}

std::optional<std::string> percentDecode(std::string_view text) {
    auto out = percentDecodeBytes(text);
    if (!out || !simdjson::validate_utf8(out->data(), out->size())) return std::nullopt;
    return out;
}

std::optional<std::string> percentDecodeBytes(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out.push_back(text[i]);
            continue;
        }
        if (i + 2 >= text.size()) return std::nullopt;
        const int high = hexValue(text[i + 1]), low = hexValue(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        out.push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    return out;
}

}  // namespace usagekit::Text
