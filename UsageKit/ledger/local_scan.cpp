#include "ledger/usage_ledger.h"

#include "core/redact.h"
#include "core/scan_cache.h"
#include "sources/app_ledger.h"
#include "sources/claude_code.h"
#include "sources/codex_cli.h"
#include "sources/copilot.h"
#include "sources/gemini_cli.h"
#include "sources/grok_cli.h"
#include "sources/log_source.h"
#include "sources/opencode.h"

#include <algorithm>
#include <optional>
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

    // The sources scan side by side, the first (the largest) on this thread while another
    // takes the rest in turn: each is mostly stats and small reads, and one after another
    // they would leave a core idle. What each finds lands in its own slot, taken in source
    // order, so the outcome never depends on timing.
    std::vector<FoundRecords> scanned(sources.size());
    std::vector<std::optional<std::string>> failures(sources.size());
    onScanThreads(sources.size(), 1, [&](size_t i) {
        try {
            scanned[i] = sources[i]->scan(cache);
        } catch (const std::exception& error) {
            failures[i] = sources[i]->provider().name() + ": " + Redact::secrets(error.what());
        }
    });
    std::vector<std::string> found;
    for (std::optional<std::string>& failure : failures)
        if (failure) found.push_back(std::move(*failure));
    // Every file a source read was asked for: what was not is gone.
    cache.pruneUnvisited();

    // What the app itself recorded for a session supersedes what any log says of it.
    std::vector<UsageRecord> own = AppLedger::all();
    std::unordered_set<std::string> ownSessions;
    for (const UsageRecord& record : own)
        if (record.session && !record.session->empty()) ownSessions.insert(*record.session);
    if (!ownSessions.empty())
        for (FoundRecords& records : scanned)
            records.eraseIf([&](const UsageRecord& r) {
                return ownSessions.contains(r.session.value_or(std::string()));
            });
    scanned.emplace_back(std::move(own));

    records = newestFirst(std::move(scanned), cache.takeSlots());
    problems = std::move(found);
    lastScan = Date::now();
    // Last, so that writing the cache does not compete with the work before the records.
    ScanCache::saveInBackground(std::move(cache));
}

}  // namespace usagekit
