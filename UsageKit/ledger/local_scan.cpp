#include "ledger/usage_ledger.h"

#include "core/paths.h"
#include "core/scan.h"
#include "core/scan_cache.h"
#include "sources/app_ledger.h"
#include "sources/claude_code.h"
#include "sources/codex_cli.h"
#include "sources/copilot.h"
#include "sources/gemini_cli.h"
#include "sources/grok_cli.h"
#include "sources/opencode.h"

#include <algorithm>

namespace usagekit {

namespace {

// Every log file a source could have cached; anything else in the cache is stale.
std::unordered_set<std::string> liveLogPaths() {
    std::unordered_set<std::string> live;
    auto add = [&](const std::vector<std::filesystem::path>& files) {
        for (const auto& file : files)
            live.insert(file.string());
    };
    add(Scan::files(TallyPaths::claudeProjects(), ".jsonl"));
    add(Scan::files(TallyPaths::grokSessions(), "updates.jsonl"));
    add(CodexCLISource::files());
    add(GeminiCLISource::files());
    add(CopilotSource::files());
    return live;
}

}  // namespace

void UsageLedger::scanLocal() {
    const ClaudeCodeSource claude;
    const GrokCLISource grok;
    const CodexCLISource codex;
    const GeminiCLISource gemini;
    const OpenCodeSource openCode;
    const CopilotSource copilot;
    scanLocal({&claude, &grok, &codex, &gemini, &openCode, &copilot}, liveLogPaths);
}

void UsageLedger::scanLocal(const std::vector<const UsageSource*>& sources,
                            const std::function<std::unordered_set<std::string>()>& livePaths) {
    ScanCache cache = ScanCache::load();
    std::vector<UsageRecord> scanned;
    std::vector<std::string> found;
    for (const UsageSource* source : sources) {
        try {
            std::vector<UsageRecord> records = source->scan(cache);
            scanned.insert(scanned.end(), std::make_move_iterator(records.begin()),
                           std::make_move_iterator(records.end()));
        } catch (const std::exception& error) {
            found.push_back(source->provider().name() + ": " + error.what());
        }
    }
    // Entries of deleted logs go; OpenCode's database is not a log, so it is never kept.
    cache.prune(livePaths());
    cache.save();

    // What the app itself recorded for a session supersedes what any log says of it.
    std::vector<UsageRecord> own = AppLedger::all();
    std::unordered_set<std::string> ownSessions;
    for (const UsageRecord& record : own)
        if (record.session && !record.session->empty()) ownSessions.insert(*record.session);
    if (!ownSessions.empty())
        std::erase_if(scanned, [&](const UsageRecord& r) {
            return ownSessions.contains(r.session.value_or(std::string()));
        });
    scanned.insert(scanned.end(), own.begin(), own.end());

    sortNewestFirst(scanned);
    records = std::move(scanned);
    problems = std::move(found);
    lastScan = Date::now();
}

}  // namespace usagekit
