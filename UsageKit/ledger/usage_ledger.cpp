#include "ledger/usage_ledger.h"

#include "core/spread_thread.h"
#include "sources/log_source.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <optional>
#include <semaphore>
#include <system_error>

namespace usagekit {

UsageLedger::UsageLedger() : pricing(Pricing::load()) {}

void sortNewestFirst(std::vector<UsageRecord>& records) {
    std::vector<FoundRecords> parts;
    parts.emplace_back(std::move(records));
    records = newestFirst(std::move(parts));
}

std::vector<UsageRecord> newestFirst(std::vector<FoundRecords> parts,
                                     std::vector<UsageRecord> room) {
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

    // Unpacking builds every string of every cached record, so both cores share it, each
    // filling whole blocks of slots: neighbouring slots written by two threads would share
    // cache lines. Making the slots is mostly first touches of fresh memory, so unless they
    // were made ahead, another core makes them while this one sorts.
    constexpr size_t kBlock = 256;
    const size_t blocks = (count + kBlock - 1) / kBlock;
    std::vector<UsageRecord> sorted;
    const bool made = room.size() == count;
    if (made) sorted = std::move(room);
    std::atomic<size_t> nextBlock{0};
    auto fill = [&] {
        for (size_t block; (block = nextBlock.fetch_add(1, std::memory_order_relaxed)) < blocks;) {
            const size_t end = std::min(count, (block + 1) * kBlock);
            for (size_t i = block * kBlock; i < end; ++i) {
                if (order[i].parsed)
                    sorted[i] = std::move(*order[i].parsed);
                else
                    ScanCache::PackedRecords::unpack(order[i].packed, sorted[i]);
            }
        }
    };
    std::binary_semaphore slotsMade(0), orderSorted(0);
    std::optional<SpreadThread> helper;
    if (blocks > 1 && scanThreads() > 1) {
        try {
            helper.emplace([&] {
                try {
                    if (!made) sorted = std::vector<UsageRecord>(count);
                } catch (const std::bad_alloc&) {
                    // left to the sorting thread, which reports it
                }
                slotsMade.release();
                orderSorted.acquire();
                fill();
            });
        } catch (const std::system_error&) {
            // no thread to be had: this one does it all
        }
    }

    // Nothing from here to the release below throws (`order` has its room, and a stable sort
    // short of memory sorts in place), so the helper is never left waiting.
    for (FoundRecords& part : parts)
        for (FoundRecords::Run& run : part.runs) {
            for (UsageRecord& record : run.parsed)
                order.push_back({record.date.secondsSince1970, &record, {}});
            for (const ScanCache::PackedRecords::Record& record : run.packed.records())
                order.push_back({record.date, nullptr, record.bytes});
        }
    std::stable_sort(order.begin(), order.end(),
                     [](const Place& a, const Place& b) { return a.date > b.date; });

    if (helper) slotsMade.acquire();
    try {
        if (sorted.size() != count) sorted = std::vector<UsageRecord>(count);
    } catch (...) {
        nextBlock = blocks;  // nothing for the helper to fill
        if (helper) orderSorted.release();
        throw;
    }
    if (helper) orderSorted.release();
    fill();
    helper.reset();  // joins it
    return sorted;
}

void UsageLedger::copy(const UsageLedger& from) {
    records = from.records;
    balances = from.balances;
    lastScan = from.lastScan;
    problems = from.problems;
    pricing = from.pricing;
}

std::span<const UsageRecord> UsageLedger::datedFrom(Date start) const {
    auto end = std::partition_point(records.begin(), records.end(),
                                    [&](const UsageRecord& r) { return r.date >= start; });
    return {records.begin(), end};
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
