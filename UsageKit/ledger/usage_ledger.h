// The ledger holds everything Tally knows at one moment: records from every source,
// balances, the time of the last local scan, the problems met, and the pricing table.
// It takes no locks: each operation runs on a private ledger, and results reach the
// interface by copy(from:) into a fresh one.
#pragma once

#include "accounts/balances.h"
#include "core/date.h"
#include "core/pricing.h"
#include "core/usage_record.h"
#include "ledger/aggregations.h"
#include "sources/usage_source.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace usagekit {

class UsageLedger {
  public:
    std::vector<UsageRecord> records;       // newest first after every scan or refresh
    std::vector<ProviderBalance> balances;  // from the last remote refresh
    std::optional<Date> lastScan;
    std::vector<std::string> problems;  // one human-readable line each
    Pricing pricing;

    UsageLedger();  // loads the pricing table; reads nothing else
    explicit UsageLedger(Pricing table) : pricing(std::move(table)) {}

    // Reads every local tool: Claude Code, Grok CLI, Codex CLI, Gemini CLI, OpenCode,
    // Copilot, then the app ledger. A failing source adds "<name>: <error>" and the scan
    // goes on. The scan cache is loaded, pruned to the logs the sources found (entries of
    // deleted logs go) and saved.
    void scanLocal();
    // The same with the given sources (tests inject failing ones).
    void scanLocal(const std::vector<const UsageSource*>& sources);

    // The seven provider calls of a remote refresh, in the order they are made.
    struct RemoteSources {
        std::function<std::vector<UsageRecord>()> anthropic, openAI, openRouterActivity, cursor;
        std::function<std::vector<ProviderBalance>()> xai, deepSeek;
        std::function<std::optional<ProviderBalance>()> openRouterCredits;
        static RemoteSources live();  // the real accounts, 30 days back
    };
    // Replaces the remote providers' records, all balances and the "API" problems with
    // what the accounts say now; local records and problems stay. The calls run one after
    // another, never together; a failing one adds "API <name> — <error>" and the rest go on.
    // The whole refresh gets `budget`: a request still running then times out
    // (HTTP::Deadline), and each call not yet made adds a time-out problem instead.
    static constexpr std::chrono::seconds kRemoteBudget{60};
    void refreshRemote();
    void refreshRemote(const RemoteSources& sources,
                       std::chrono::steady_clock::duration budget = kRemoteBudget);

    void copy(const UsageLedger& from);
    // Records dated at or after `days` calendar days before `now`; all when days < 1.
    std::vector<UsageRecord> since(int64_t days, Date now = Date::now()) const;
    // The records dated at or after `start`, later ones included. The records are newest
    // first, so these are the first ones: a view into `records`, valid until they change.
    std::span<const UsageRecord> datedFrom(Date start) const;

    // --- aggregations, all priced with `pricing` ---
    double cost(const UsageRecord& record) const { return pricing.cost(record); }
    bool isUnpriced(const UsageRecord& record) const;
    Totals totals(std::span<const UsageRecord> list) const;
    Totals totals(const std::vector<UsageRecord>& list) const {
        return totals(std::span<const UsageRecord>(list));
    }

    using KeyFunction = std::function<std::string(const UsageRecord&)>;
    using MeteredFunction = std::function<bool(const UsageRecord&)>;
    // Slices by key, label and metered flag from the first record of each key, sorted by
    // tokens, largest first (stable: ties keep the order in which keys first appeared).
    std::vector<Slice> group(const std::vector<UsageRecord>& list, const KeyFunction& key,
                             const KeyFunction& label, const MeteredFunction& metered) const;
    std::vector<Slice> byProvider(const std::vector<UsageRecord>& list) const;
    std::vector<Slice> byModel(const std::vector<UsageRecord>& list) const;
    std::vector<Slice> byProject(const std::vector<UsageRecord>& list) const;
    std::vector<Slice> byKind(const std::vector<UsageRecord>& list) const;
    std::vector<Slice> bySession(const std::vector<UsageRecord>& list) const;

    // What the prompt cache saved against paying the full input rate.
    double cacheSavings(const std::vector<UsageRecord>& list) const;
    // One point per provider and local day, sorted by day (then provider name), for the
    // days from `from` through `through` (default: the first and last record's days).
    std::vector<Point> daily(const std::vector<UsageRecord>& list,
                             std::optional<Date> from = std::nullopt,
                             std::optional<Date> through = std::nullopt) const;
    // Exactly max(days, 1) points of the pseudo provider "all", oldest first, ending today.
    std::vector<Point> dailyTotals(const std::vector<UsageRecord>& list, int64_t days,
                                   Date now = Date::now()) const;
};

// The keys byModel, byProject and bySession group by, for callers that split records
// the same way.
namespace GroupKey {
std::string model(const UsageRecord& record);    // provider id + "|" + model
std::string project(const UsageRecord& record);  // projectName()
std::string session(const UsageRecord& record);  // the session; empty when absent
}  // namespace GroupKey

// Newest first; records with equal dates keep their order.
void sortNewestFirst(std::vector<UsageRecord>& records);
// The records of all `parts`, taken as if joined in order, newest first; records with equal
// dates keep that order. Each record is moved or unpacked once, straight to its place.
// `room`, default records made ahead of time by a thread with nothing else to do, becomes
// the result when it holds exactly as many records as `parts`.
std::vector<UsageRecord> newestFirst(std::vector<FoundRecords> parts,
                                     std::vector<UsageRecord> room = {});

}  // namespace usagekit
