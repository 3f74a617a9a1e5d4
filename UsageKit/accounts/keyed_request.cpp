#include "accounts/keyed_request.h"

#include "accounts/keychain.h"

namespace usagekit::KeyedRequest {

HTTP::Headers bearer(const std::string& key) {
    return {{"Authorization", "Bearer " + key}};
}

std::optional<JSONDocument> get(const char* account, const std::string& address,
                                const HTTP::Query& query,
                                HTTP::Headers (*sign)(const std::string& key)) {
    auto key = Keychain::get(account);
    if (!key) return std::nullopt;
    auto url = HTTP::url(address, query);
    if (!url) return std::nullopt;
    return HTTP::get(*url, sign(*key), kSeconds);
}

}  // namespace usagekit::KeyedRequest
