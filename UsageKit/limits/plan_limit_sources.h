// Readers of subscription plan limits: Claude's usage windows from Anthropic's OAuth usage
// endpoint, signed in with the token Claude Code keeps for itself (read only, never
// refreshed or written), and Codex's rate limits from the tails of its newest session logs.
// claude() throws a Problem or HTTP::TransportError, whose what() is the user's text; the
// parsers and the Codex reader never throw: what they cannot read gives nothing.
#pragma once

#include "core/date.h"
#include "core/json.h"
#include "limits/plan_limits.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace usagekit::PlanLimitSources {

namespace fs = std::filesystem;

struct SignIn {
    std::string token;  // a secret: never logged, never written anywhere
    std::optional<Date> expiresAt;
    std::optional<std::string> plan;  // "Max", "Pro", ...
};

struct Problem : std::runtime_error {
    enum class Kind { rejected, notSignedIn, expired, unreadable };
    Kind kind;
    int64_t status = 0;  // the HTTP status of `rejected`

    static Problem rejected(int64_t status);
    static Problem notSignedIn();
    static Problem expired();
    static Problem unreadable();

  private:
    Problem(Kind kind, int64_t status, const std::string& description);
};

// Claude Code's sign-in: its credentials file first, then its Secret Service item.
std::optional<SignIn> claudeSignIn();
// The sign-in in the JSON Claude Code stores: {"claudeAiOauth": {"accessToken", ...}}.
std::optional<SignIn> parseSignIn(std::string_view data);

// Asks Anthropic for the signed-in plan's windows. An expired sign-in sends nothing.
PlanLimits claude(Date now);
// Every member with a numeric "utilization", sorted in display order; unknown windows only
// when above 0. Pure.
PlanLimits parseClaude(const JSON& answer, Date asOf, std::optional<std::string> plan);

// The sessions folder of Codex's home ($CODEX_HOME, else ~/.codex).
fs::path codexSessions();
// The limits on the last line that carries them, in the newest of the five newest logs
// under `root` that has one; only the last 256 KiB of each log is read. A compressed log
// (.jsonl.zst, left out while its plain twin is there) cannot be read from its end: it is
// decoded through once and its last 256 KiB of lines with "rate_limits" are searched.
std::optional<PlanLimits> codex(const fs::path& root);
// One Codex log line; absent unless it carries a non-null "rate_limits" with a window.
std::optional<PlanLimits> parseCodex(std::string_view line);

// The last `bytes` bytes of a file, with invalid UTF-8 (as where a character is cut)
// replaced by U+FFFD; absent when the file cannot be read.
std::optional<std::string> tail(const fs::path& file, size_t bytes);

// First letter of each blank-separated word upper case, the rest lower case (ASCII).
std::string capitalized(std::string_view text);

}  // namespace usagekit::PlanLimitSources
