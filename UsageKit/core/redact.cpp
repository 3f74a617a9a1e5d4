#include "core/redact.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace usagekit::Redact {

namespace {

constexpr size_t kShortestKnown = 6;
constexpr size_t kShortestKeyBody = 12;

// Field names whose value is a credential, lower case. Matched where they stand as a
// whole word, so "monkey=" or "tokenizer:" are left alone.
constexpr std::array<std::string_view, 18> kFieldNames{"authorization", "proxy-authorization",
                                                       "x-api-key",     "api-key",
                                                       "api_key",       "apikey",
                                                       "cookie",        "set-cookie",
                                                       "access_token",  "accesstoken",
                                                       "refresh_token", "refreshtoken",
                                                       "id_token",      "client_secret",
                                                       "password",      "secret",
                                                       "session_key",   "x-goog-api-key"};
// Prefixes of provider keys and tokens that are secrets wherever they stand.
constexpr std::array<std::string_view, 3> kKeyPrefixes{"sk-", "xai-", "sess-"};

bool isWordCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-';
}
// Characters of a token value: base64, base64url, and the punctuation keys use.
bool isTokenCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.' ||
           c == '~' || c == '+' || c == '/' || c == '=';
}

bool startsWithIgnoringCase(std::string_view text, size_t at, std::string_view word) {
    if (text.size() - at < word.size()) return false;
    for (size_t i = 0; i < word.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(text[at + i])) != word[i]) return false;
    return true;
}

size_t tokenEnd(std::string_view text, size_t at) {
    while (at < text.size() && isTokenCharacter(text[at]))
        ++at;
    return at;
}

// The end of the value that follows a field name at `at` (just past the name), or npos
// when no ":" or "=" follows. Quotes and blanks around the separator are stepped over, and
// a "Bearer"/"Basic" scheme word counts as part of the value.
size_t fieldValueEnd(std::string_view text, size_t at, bool wholeLine, size_t& valueStart) {
    auto skip = [&](std::string_view chars) {
        while (at < text.size() && chars.find(text[at]) != std::string_view::npos)
            ++at;
    };
    skip("\"' \t\\");
    if (at >= text.size() || (text[at] != ':' && text[at] != '=')) return std::string_view::npos;
    ++at;
    skip("\"' \t\\");
    valueStart = at;
    if (wholeLine) {
        while (at < text.size() && text[at] != '\n' && text[at] != '\r' && text[at] != '"')
            ++at;
        return at;
    }
    for (std::string_view scheme : {std::string_view("bearer "), std::string_view("basic ")})
        if (startsWithIgnoringCase(text, at, scheme)) at += scheme.size();
    return tokenEnd(text, at);
}

}  // namespace

std::string secrets(std::string_view text, std::span<const std::string> known) {
    std::string out(text);
    for (const std::string& value : known) {
        if (value.size() < kShortestKnown) continue;
        for (size_t at = out.find(value); at != std::string::npos;
             at = out.find(value, at + kMark.size()))
            out.replace(at, value.size(), kMark);
    }

    std::string result;
    result.reserve(out.size());
    size_t i = 0;
    while (i < out.size()) {
        const bool wordStart = i == 0 || !isWordCharacter(out[i - 1]);
        if (wordStart) {
            size_t end = std::string::npos;
            size_t valueStart = i;
            for (std::string_view name : kFieldNames) {
                if (!startsWithIgnoringCase(out, i, name)) continue;
                const size_t after = i + name.size();
                if (after < out.size() && isWordCharacter(out[after])) continue;
                end = fieldValueEnd(out, after, name.ends_with("cookie"), valueStart);
                if (end != std::string::npos) break;
            }
            if (end == std::string::npos) {
                for (std::string_view scheme :
                     {std::string_view("bearer "), std::string_view("basic ")}) {
                    if (startsWithIgnoringCase(out, i, scheme)) {
                        valueStart = i + scheme.size();
                        end = tokenEnd(out, valueStart);
                        if (end == valueStart) end = std::string::npos;
                        break;
                    }
                }
            }
            if (end == std::string::npos) {
                for (std::string_view prefix : kKeyPrefixes) {
                    if (!startsWithIgnoringCase(out, i, prefix)) continue;
                    const size_t keyEnd = tokenEnd(out, i + prefix.size());
                    if (keyEnd - i - prefix.size() >= kShortestKeyBody) {
                        valueStart = i;
                        end = keyEnd;
                    }
                    break;
                }
            }
            if (end != std::string::npos && end > valueStart) {
                result.append(out, i, valueStart - i);
                result += kMark;
                i = end;
                continue;
            }
        }
        result += out[i++];
    }
    return result;
}

}  // namespace usagekit::Redact
