#include "ledger/usage_ledger.h"

#include "core/scan_cache.h"
#include "sources/app_ledger.h"
#include "sources/claude_code.h"
#include "sources/codex_cli.h"
#include "sources/copilot.h"
#include "sources/gemini_cli.h"
#include "sources/grok_cli.h"
#include "sources/opencode.h"

#include <algorithm>
#include <unordered_set>

namespace usagekit {

void UsageLedger::scanLocal() {
    const ClaudeCodeSource claude;
    const GrokCLISource grok;
    const CodexCLISource codex;
    const GeminiCLISource gemini;
    const OpenCodeSource openCode;
    const CopilotSource copilot;
    scanLocal({&claude, &grok, &codex, &gemini, &openCode, &copilot});
}

void UsageLedger::scanLocal(const std::vector<const UsageSource*>& sources) {
    // The cache is read while the sources walk their log directories and stat their logs.
    ScanCache cache = ScanCache::loadInBackground();
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
    // Every log a source listed was asked for: what was not is gone (OpenCode reads a
    // database, not logs, so it never keeps an entry).
    cache.pruneUnvisited();

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
    // Last, so that writing the cache does not compete with the work before the records.
    ScanCache::saveInBackground(std::move(cache));
}

}  // namespace usagekit
