#include "ledger/usage_ledger.h"

#include "sources/log_source.h"

#include <algorithm>
#include <cstdint>

namespace usagekit {

UsageLedger::UsageLedger() : pricing(Pricing::load()) {}

void sortNewestFirst(std::vector<UsageRecord>& records) {
    std::vector<FoundRecords> parts;
    parts.emplace_back(std::move(records));
    records = newestFirst(std::move(parts));
}

std::vector<UsageRecord> newestFirst(std::vector<FoundRecords> parts) {
    // Sorting compact places and then filling each record's slot once beats moving records
    // about while sorting: a record is a dozen fields, four of them strings, and thousands
    // of them lie far apart in memory. A packed record's date was noted when its image was read.
    struct Place {
        double date;
        UsageRecord* parsed;  // or, when null, the record is `packed`
        std::string_view packed;
    };
    size_t count = 0;
    for (const FoundRecords& part : parts)
        count += part.size();
    std::vector<Place> order;
    order.reserve(count);
    for (FoundRecords& part : parts)
        for (FoundRecords::Run& run : part.runs) {
            for (UsageRecord& record : run.parsed)
                order.push_back({record.date.secondsSince1970, &record, {}});
            for (const ScanCache::PackedRecords::Record& record : run.packed.records())
                order.push_back({record.date, nullptr, record.bytes});
        }
    std::stable_sort(order.begin(), order.end(),
                     [](const Place& a, const Place& b) { return a.date > b.date; });

    // Unpacking builds every string of every cached record, so both cores share it, each
    // filling whole blocks of slots: neighbouring slots written by two threads would share
    // cache lines.
    std::vector<UsageRecord> sorted(count);
    constexpr size_t kBlock = 256;
    onScanThreads((order.size() + kBlock - 1) / kBlock, 2, [&](size_t block) {
        const size_t end = std::min(order.size(), (block + 1) * kBlock);
        for (size_t i = block * kBlock; i < end; ++i) {
            if (order[i].parsed)
                sorted[i] = std::move(*order[i].parsed);
            else
                ScanCache::PackedRecords::unpack(order[i].packed, sorted[i]);
        }
    });
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
