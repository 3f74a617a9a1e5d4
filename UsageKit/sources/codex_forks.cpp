#include "sources/codex_forks.h"

#include "core/json.h"
#include "core/line_reader.h"
#include "core/log_bytes.h"

namespace usagekit::CodexForks {

namespace fs = std::filesystem;

ParentLookup lookupIn(const std::vector<std::string>& logs) {
    return [&logs](std::string_view threadId) -> std::optional<ParentLog> {
        if (threadId.empty()) return std::nullopt;
        for (const std::string& log : logs) {
            const std::string_view stem = logStem(std::string_view(log).substr(log.rfind('/') + 1));
            if (stem.size() > threadId.size() && stem.ends_with(threadId) &&
                stem[stem.size() - threadId.size() - 1] == '-')
                return read(log);
        }
        return std::nullopt;
    };
}

ParentLog read(const fs::path& log) {
    ParentLog parent;
    JSONParser parser;
    // Both kinds of line name their type in quotes: "token_count", "token_usage_record".
    Scan::forEachLineContaining(log, "\"token_", [&](std::string_view text) {
        auto root = parser.parse(text);
        if (!root || !root->isObject()) return;
        const std::optional<std::string_view> type = (*root)["type"].string();
        const JSON payload = (*root)["payload"];
        try {
            if (type == "token_usage_record") {
                parent.recordKeys.emplace(payload["response_id"].string().value_or(
                    (*root)["timestamp"].string().value_or("")));
            } else if (type == "event_msg" && payload.isObject() &&
                       payload["type"].string() == "token_count") {
                const JSON info = payload["info"];
                if (!info.isObject() || !info["total_token_usage"].hasValue()) return;
                const Counts totals(info["total_token_usage"]);
                if (parent.totals.empty() || !(parent.totals.back() == totals))
                    parent.totals.push_back(totals);
            }
        } catch (const OutOfRange&) {
            // Dropped here as the Codex parser drops it, so both sequences stay in step.
        }
    });
    return parent;
}

size_t replayedTurns(const std::vector<Counts>& fork, const std::vector<Counts>& parent) {
    size_t n = 0;
    while (n < fork.size() && n < parent.size() && fork[n] == parent[n])
        ++n;
    return n;
}

}  // namespace usagekit::CodexForks
