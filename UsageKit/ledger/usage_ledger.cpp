#include "ledger/usage_ledger.h"

#include <algorithm>

namespace usagekit {

UsageLedger::UsageLedger() : pricing(Pricing::load()) {}

void sortNewestFirst(std::vector<UsageRecord>& records) {
    std::stable_sort(records.begin(), records.end(),
                     [](const UsageRecord& a, const UsageRecord& b) { return a.date > b.date; });
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
