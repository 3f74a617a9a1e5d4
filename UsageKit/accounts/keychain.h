// The user's provider keys, one Secret Service item per key (attributes "service" =
// "app.tally.Tally" and "account", label "Tally: " + account, default collection).
// Synchronous, callable from any thread, never throws: an unreachable, slow or locked
// Secret Service reads as a missing key and drops writes, and no call waits on it for more
// than a few seconds or asks the user to unlock anything.
//
// Before the store, get() reads the environment variable "TALLY_" + the account in upper
// case with "-" as "_" (TALLY_ANTHROPIC_ADMIN_KEY): a headless machine gets its keys there.
#pragma once

#include <optional>
#include <string>

namespace usagekit::Keychain {

inline constexpr const char* kService = "app.tally.Tally";

std::optional<std::string> get(const std::string& account);
bool has(const std::string& account);
// Replaces the stored key; an empty value only deletes it. Failures are silent.
void set(const std::string& value, const std::string& account);
// A masked form for display: fewer than 11 characters give that many "•"; longer keys
// the first 6 characters, "…" and the last 4.
std::optional<std::string> hint(const std::string& account);

// Another program's item, read only: the first item whose "service" attribute is
// `service` (e.g. "Claude Code-credentials"), of any schema and account.
std::optional<std::string> foreign(const std::string& service);

// The variable get() reads first: "anthropic-admin-key" → "TALLY_ANTHROPIC_ADMIN_KEY".
std::string environmentName(const std::string& account);

}  // namespace usagekit::Keychain
