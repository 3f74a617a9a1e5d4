#include "ledger/usage_ledger.h"

#include <algorithm>
#include <cstdint>

namespace usagekit {

UsageLedger::UsageLedger() : pricing(Pricing::load()) {}

void sortNewestFirst(std::vector<UsageRecord>& records) {
    std::vector<std::vector<UsageRecord>> parts;
    parts.push_back(std::move(records));
    records = newestFirst(std::move(parts));
}

std::vector<UsageRecord> newestFirst(std::vector<std::vector<UsageRecord>> parts) {
    // Sorting compact places and moving each record once beats moving records about while
    // sorting: a record is a dozen fields, four of them strings, and thousands of them lie
    // far apart in memory.
    struct Place {
        double date;
        uint32_t part;
        uint32_t index;  // no machine holds four billion records
    };
    size_t count = 0;
    for (const std::vector<UsageRecord>& part : parts)
        count += part.size();
    std::vector<Place> order;
    order.reserve(count);
    for (uint32_t p = 0; p < parts.size(); ++p)
        for (uint32_t i = 0; i < parts[p].size(); ++i)
            order.push_back({parts[p][i].date.secondsSince1970, p, i});
    std::stable_sort(order.begin(), order.end(),
                     [](const Place& a, const Place& b) { return a.date > b.date; });
    std::vector<UsageRecord> sorted;
    sorted.reserve(count);
    for (const Place& place : order)
        sorted.push_back(std::move(parts[place.part][place.index]));
    return sorted;
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
