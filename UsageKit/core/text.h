// Small text helpers shared across sources and accounts: UTF-8 aware prefixes, trimming,
// and percent-encoding. One implementation each; look here before writing another.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace usagekit::Text {

// The first `count` characters (code points, not bytes) of UTF-8 text.
std::string firstCharacters(std::string_view text, size_t count);
// Number of code points in UTF-8 text.
size_t characterCount(std::string_view text);
// Without leading and trailing blanks, tabs and line breaks.
std::string_view trimmed(std::string_view text);
std::string lowercased(std::string_view text);  // ASCII letters only

// Characters left as they are when percent-encoding: ALPHA / DIGIT / "-._~" plus `extra`.
std::string percentEncode(std::string_view text, std::string_view extra);
// The characters a URL path may hold besides unreserved ones.
inline constexpr std::string_view kURLPathExtra = "!$&'()*+,;=:@/";
// Absent when a "%" is not followed by two hex digits or the result is not UTF-8.
std::optional<std::string> percentDecode(std::string_view text);
// The same for bytes that need not be text: only a bad "%" makes it absent.
std::optional<std::string> percentDecodeBytes(std::string_view text);

}  // namespace usagekit::Text
