#include "ledger/usage_ledger.h"

#include <algorithm>
#include <numeric>

namespace usagekit {

UsageLedger::UsageLedger() : pricing(Pricing::load()) {}

void sortNewestFirst(std::vector<UsageRecord>& records) {
    // Sorting positions and moving each record once beats moving records about while
    // sorting: a record is a dozen fields, four of them strings.
    std::vector<size_t> order(records.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return records[a].date > records[b].date; });
    std::vector<UsageRecord> sorted;
    sorted.reserve(records.size());
    for (size_t i : order)
        sorted.push_back(std::move(records[i]));
    records = std::move(sorted);
}

void UsageLedger::copy(const UsageLedger& from) {
    records = from.records;
    balances = from.balances;
    lastScan = from.lastScan;
    problems = from.problems;
    pricing = from.pricing;
}

std::vector<UsageRecord> UsageLedger::since(int64_t days, Date now) const {
    if (days < 1) return records;
    const Date cutoff =
        Calendar::addingDays(now, static_cast<int>(std::min<int64_t>(days, 1'000'000)) * -1);
    std::vector<UsageRecord> kept;
    for (const UsageRecord& record : records)
        if (record.date >= cutoff) kept.push_back(record);
    return kept;
}

}  // namespace usagekit
