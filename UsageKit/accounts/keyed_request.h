// The step every key-based account reader shares: read the key, build the URL, GET it
// signed with the key (30 seconds at most). With no key, or an address that is no URL,
// nothing is sent and nothing comes back; that is never an error.
#pragma once

#include "accounts/http.h"
#include "core/json.h"

#include <optional>
#include <string>

namespace usagekit::KeyedRequest {

inline constexpr double kSeconds = 30;

// "Authorization: Bearer <key>", the only header most providers want.
HTTP::Headers bearer(const std::string& key);

// Throws HTTP::Err and HTTP::TransportError as HTTP::get does.
std::optional<JSONDocument> get(const char* account, const std::string& address,
                                const HTTP::Query& query = {},
                                HTTP::Headers (*sign)(const std::string& key) = bearer);

}  // namespace usagekit::KeyedRequest
