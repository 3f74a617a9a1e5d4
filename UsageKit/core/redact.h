// Removes credentials from text before anyone sees it. Provider answers, library errors
// and problem lines can echo what we sent (an HTTP 500 whose body lists the request
// headers), so every text that reaches output, a file or a notification passes here first.
// Pure and thread-safe; never throws except std::bad_alloc.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace usagekit::Redact {

inline constexpr std::string_view kMark = "[redacted]";

// `text` with every credential replaced by kMark: each of the `known` values (what was
// actually sent; values shorter than 6 characters are left, they would match everywhere),
// the value after a credential-like field name (Authorization, x-api-key, cookie, token,
// ...) followed by ":" or "=", the word after "Bearer" or "Basic", and key-shaped words
// ("sk-…", "xai-…").
std::string secrets(std::string_view text, std::span<const std::string> known = {});

}  // namespace usagekit::Redact
