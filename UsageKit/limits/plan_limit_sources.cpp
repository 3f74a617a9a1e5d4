#include "limits/plan_limit_sources.h"

#include "accounts/endpoints.h"
#include "accounts/http.h"
#include "accounts/keychain.h"
#include "core/checked.h"
#include "core/line_reader.h"
#include "core/log_bytes.h"
#include "core/paths.h"
#include "core/regular_file.h"
#include "core/scan.h"
#include "core/store.h"
#include "sources/log_roots.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <utility>
#include <vector>

namespace usagekit::PlanLimitSources {

namespace {

struct ClaudeWindowName {
    std::string_view key;
    std::string_view label;
};

// Display order and labels of the windows Anthropic is known to report.
constexpr std::array<ClaudeWindowName, 5> kClaudeWindows{{
    {"five_hour", "5-hour"},
    {"seven_day", "Weekly"},
    {"seven_day_opus", "Weekly · Opus"},
    {"seven_day_sonnet", "Weekly · Sonnet"},
    {"seven_day_oauth_apps", "Weekly · apps"},
}};
constexpr size_t kUnknownPosition = 99;

size_t claudePosition(std::string_view key) {
    for (size_t i = 0; i < kClaudeWindows.size(); ++i)
        if (kClaudeWindows[i].key == key) return i;
    return kUnknownPosition;
}

constexpr size_t kCodexTailBytes = 256 * 1024;
constexpr size_t kCodexNewestFiles = 5;

// Length of the valid UTF-8 sequence at `p`, or 0 when it is not one (overlong forms,
// surrogates and code points beyond U+10FFFF included).
size_t validSequence(const unsigned char* p, const unsigned char* end) {
    unsigned char c = p[0];
    if (c < 0x80) return 1;
    size_t length;
    unsigned char low = 0x80, high = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) {
        length = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
        length = 3;
        if (c == 0xE0) low = 0xA0;
        if (c == 0xED) high = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        length = 4;
        if (c == 0xF0) low = 0x90;
        if (c == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (static_cast<size_t>(end - p) < length) return 0;
    if (p[1] < low || p[1] > high) return 0;
    for (size_t i = 2; i < length; ++i)
        if (p[i] < 0x80 || p[i] > 0xBF) return 0;
    return length;
}

std::string replacingInvalidUTF8(std::string bytes) {
    if (simdjson::validate_utf8(bytes.data(), bytes.size())) return bytes;
    std::string out;
    out.reserve(bytes.size() + 16);
    auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    auto* end = p + bytes.size();
    while (p < end) {
        size_t length = validSequence(p, end);
        if (length == 0) {
            out += "\xEF\xBF\xBD";
            ++p;
        } else {
            out.append(reinterpret_cast<const char*>(p), length);
            p += length;
        }
    }
    return out;
}

// The first non-null "rate_limits" met depth first through objects (arrays are not
// searched, as Codex never nests the limits in one).
JSON findRateLimits(const JSON& json) {
    if (!json.isObject()) return JSON();
    JSON own = json["rate_limits"];
    if (own.hasValue()) return own;
    for (const auto& [key, value] : json.members()) {
        JSON hit = findRateLimits(value);
        if (hit.exists()) return hit;
    }
    return JSON();
}

std::string codexLabel(int64_t minutes) {
    if (minutes == 300) return "5-hour";
    if (minutes == 10080) return "Weekly";
    if (minutes >= 1440) return std::to_string(minutes / 1440) + "-day";
    return std::to_string(minutes / 60) + "-hour";
}

std::optional<PlanLimits> parseCodex(std::string_view line, JSONParser& parser) {
    auto json = parser.parse(line);
    if (!json) return std::nullopt;
    JSON limits = findRateLimits(*json);
    if (!limits.isObject()) return std::nullopt;
    PlanLimits result;
    try {
        for (const char* key : {"primary", "secondary"}) {
            JSON window = limits[key];
            auto used = window["used_percent"].number();
            if (!window.isObject() || !used) continue;
            int64_t minutes = window["window_minutes"].integer();
            std::optional<Date> resetsAt;
            if (auto seconds = window["resets_at"].number()) {
                // Announce keys hold the reset time as a 64-bit count of seconds.
                truncatedCount(*seconds);
                resetsAt = Date{*seconds};
            }
            result.windows.push_back({key, codexLabel(minutes), *used, resetsAt});
        }
    } catch (const OutOfRange&) {
        return std::nullopt;
    }
    if (result.windows.empty()) return std::nullopt;
    result.provider = "codex";
    result.name = "ChatGPT · Codex";
    auto stamp = (*json)["timestamp"].string();
    std::optional<Date> asOf = stamp ? Scan::date(*stamp) : std::nullopt;
    result.asOf = asOf ? *asOf : Date::now();
    result.note = "From Codex's last turn on this computer";
    return result;
}

}  // namespace

Problem::Problem(Kind kind, int64_t status, const std::string& description)
    : std::runtime_error(description), kind(kind), status(status) {}

Problem Problem::rejected(int64_t status) {
    return Problem(Kind::rejected, status,
                   "Anthropic refused the request (HTTP " + std::to_string(status) + ").");
}

Problem Problem::notSignedIn() {
    return Problem(Kind::notSignedIn, 0,
                   "Claude Code's sign-in was not found on this computer, or access to it was "
                   "refused.");
}

Problem Problem::expired() {
    return Problem(Kind::expired, 0,
                   "Claude Code's sign-in has expired. It renews the next time Claude Code runs.");
}

Problem Problem::unreadable() {
    return Problem(Kind::unreadable, 0,
                   "Anthropic's answer could not be read. The endpoint may have changed.");
}

std::string capitalized(std::string_view text) {
    std::string out(text);
    bool wordStart = true;
    for (char& c : out) {
        bool blank = c == ' ' || c == '\t' || c == '\n' || c == '\r';
        if (c >= 'a' && c <= 'z' && wordStart) c = static_cast<char>(c - 'a' + 'A');
        if (c >= 'A' && c <= 'Z' && !wordStart) c = static_cast<char>(c - 'A' + 'a');
        wordStart = blank;
    }
    return out;
}

std::optional<SignIn> parseSignIn(std::string_view data) {
    auto document = JSONDocument::parse(data);
    if (!document) return std::nullopt;
    JSON oauth = document->root()["claudeAiOauth"];
    auto token = oauth["accessToken"].string();
    if (!token) return std::nullopt;
    SignIn signIn{std::string(*token), std::nullopt, std::nullopt};
    if (auto milliseconds = oauth["expiresAt"].number())
        signIn.expiresAt = Date{*milliseconds / 1000};
    if (auto plan = oauth["subscriptionType"].string()) signIn.plan = capitalized(*plan);
    return signIn;
}

std::optional<SignIn> claudeSignIn() {
    // Claude Code on Linux keeps its sign-in in a file; some set-ups keep it in the
    // Secret Service under the name it uses on the Mac.
    // $CLAUDE_CONFIG_DIR may name several homes: the first sign-in found is used.
    for (const fs::path& file : TallyPaths::claudeCredentialFiles())
        if (auto data = Store::readFile(file))
            if (auto signIn = parseSignIn(*data)) return signIn;
    if (auto data = Keychain::foreign("Claude Code-credentials")) return parseSignIn(*data);
    return std::nullopt;
}

PlanLimits claude(Date now) {
    auto signIn = claudeSignIn();
    if (!signIn) throw Problem::notSignedIn();
    // Only Claude Code renews its token; an expired one would only be refused.
    if (signIn->expiresAt && *signIn->expiresAt <= now) throw Problem::expired();
    HTTP::Request request;
    request.url = Endpoints::anthropic() + "/api/oauth/usage";
    request.headers = {{"Authorization", "Bearer " + signIn->token},
                       {"anthropic-beta", "oauth-2025-04-20"},
                       {"Accept", "application/json"}};
    request.timeout = 20;
    HTTP::Response response = HTTP::sendRaw(request);
    if (response.status < 200 || response.status > 299) throw Problem::rejected(response.status);
    PlanLimits limits = parseClaude(response.json.root(), now, std::move(signIn->plan));
    if (limits.windows.empty()) throw Problem::unreadable();
    return limits;
}

PlanLimits parseClaude(const JSON& answer, Date asOf, std::optional<std::string> plan) {
    PlanLimits limits;
    limits.provider = "claude";
    limits.name = "Claude";
    limits.plan = std::move(plan);
    limits.asOf = asOf;
    for (const auto& [key, value] : answer.members()) {
        if (key == "extra_usage" || !value.isObject()) continue;
        auto utilization = value["utilization"].number();
        if (!utilization) continue;
        size_t position = claudePosition(key);
        std::string label;
        if (position != kUnknownPosition) {
            label = kClaudeWindows[position].label;
        } else if (*utilization > 0) {
            std::string words(key);
            std::replace(words.begin(), words.end(), '_', ' ');
            label = capitalized(words);
        } else {
            continue;
        }
        std::optional<Date> resetsAt;
        if (auto text = value["resets_at"].string()) resetsAt = ISO8601::parse(*text);
        limits.windows.push_back({std::string(key), std::move(label), *utilization, resetsAt});
    }
    std::stable_sort(limits.windows.begin(), limits.windows.end(),
                     [](const PlanLimits::Window& a, const PlanLimits::Window& b) {
                         size_t pa = claudePosition(a.key), pb = claudePosition(b.key);
                         return pa != pb ? pa < pb : a.key < b.key;
                     });
    return limits;
}

namespace {

// A compressed log cannot be read from its end: it is decoded through once, keeping only
// the lines a plain tail would be searched for (those with "rate_limits"), the newest last,
// as many as fit in `bytes`. Absent when the file cannot be opened.
std::optional<std::string> compressedTail(const fs::path& file, size_t bytes) {
    std::deque<std::string> lines;
    size_t held = 0;
    const bool opened =
        Scan::forEachLineContaining(file, "\"rate_limits\"", [&](std::string_view line) {
            if (line.size() >= bytes) return;
            lines.emplace_back(line);
            held += line.size() + 1;
            while (held > bytes) {
                held -= lines.front().size() + 1;
                lines.pop_front();
            }
        });
    if (!opened) return std::nullopt;
    std::string text;
    text.reserve(held);
    for (const std::string& line : lines)
        text.append(line).push_back('\n');
    return text;
}

}  // namespace

fs::path codexSessions() {
    return TallyPaths::codexSessions();
}

std::optional<PlanLimits> codex(const fs::path& root) {
    std::vector<std::pair<double, fs::path>> logs;
    for (std::string& file :
         LogRoots::withoutCompressedTwins(Scan::files(root, {".jsonl", ".jsonl.zst"}))) {
        struct stat info {};
        if (::stat(file.c_str(), &info) != 0) continue;
        double modified = static_cast<double>(info.st_mtim.tv_sec) +
                          static_cast<double>(info.st_mtim.tv_nsec) / 1e9;
        logs.emplace_back(modified, std::move(file));
    }
    std::stable_sort(logs.begin(), logs.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    if (logs.size() > kCodexNewestFiles) logs.resize(kCodexNewestFiles);

    JSONParser parser;
    for (const auto& [modified, file] : logs) {
        auto text = isCompressedLog(file.native()) ? compressedTail(file, kCodexTailBytes)
                                                   : tail(file, kCodexTailBytes);
        if (!text) continue;
        std::string_view rest(*text);
        // Last line first: the newest turn carries the current figures.
        while (!rest.empty()) {
            size_t cut = rest.rfind('\n');
            std::string_view line = cut == std::string_view::npos ? rest : rest.substr(cut + 1);
            rest = cut == std::string_view::npos ? std::string_view() : rest.substr(0, cut);
            if (!Scan::contains(line, "\"rate_limits\"")) continue;
            if (auto limits = parseCodex(line, parser)) return limits;
        }
    }
    return std::nullopt;
}

std::optional<PlanLimits> parseCodex(std::string_view line) {
    JSONParser parser;
    return parseCodex(line, parser);
}

std::optional<std::string> tail(const fs::path& file, size_t bytes) {
    const int fd = RegularFile::open(file.c_str());
    if (fd < 0) return std::nullopt;
    std::optional<std::string> out;
    off_t size = ::lseek(fd, 0, SEEK_END);
    if (size >= 0) {
        off_t start = static_cast<size_t>(size) > bytes ? size - static_cast<off_t>(bytes) : 0;
        std::string data(static_cast<size_t>(size - start), '\0');
        size_t filled = 0;
        bool failed = false;
        while (filled < data.size()) {
            ssize_t n = ::pread(fd, data.data() + filled, data.size() - filled,
                                start + static_cast<off_t>(filled));
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) failed = true;
            if (n <= 0) break;
            filled += static_cast<size_t>(n);
        }
        // A file that shrank meanwhile gives what was there.
        data.resize(filled);
        if (!failed) out = replacingInvalidUTF8(std::move(data));
    }
    ::close(fd);
    return out;
}

}  // namespace usagekit::PlanLimitSources
