// What a source found, in order: records it parsed, and the records of logs that had not
// changed, still packed in the scan cache's image. The ledger unpacks packed records straight
// into their places among everyone's records (newestFirst), so a rescan of unchanged logs
// builds each record once, where it stays, instead of into a source's list and again into
// the sorted one.
#pragma once

#include "core/scan_cache.h"
#include "core/usage_record.h"

#include <functional>
#include <memory>
#include <vector>

namespace usagekit {

struct FoundRecords {
    // One file's records, or a run of parsed ones: `parsed`, then `packed`.
    struct Run {
        std::vector<UsageRecord> parsed;
        ScanCache::PackedRecords packed;

        // A cache entry's records, packed or not.
        static Run of(ScanCache::Entry entry) {
            return {std::move(entry.records), std::move(entry.packed)};
        }
    };
    std::vector<Run> runs;
    // The cache images that packed runs point into.
    std::vector<std::shared_ptr<const void>> held;

    FoundRecords() = default;
    // Not explicit: a source that parses everything it reads simply returns its records.
    FoundRecords(std::vector<UsageRecord> records);

    void add(std::vector<UsageRecord> records);
    // A cache entry's records, packed or not, from `cache`.
    void add(ScanCache::Entry entry, ScanCache& cache);
    // Keeps `image` (a ScanCache::packedImage()) for as long as these records live.
    void hold(std::shared_ptr<const void> image);

    size_t size() const;
    bool empty() const { return size() == 0; }
    // Every record, in order, unpacked.
    std::vector<UsageRecord> all() &&;
    // Leaves out the records `leaveOut` holds true for; the rest are unpacked first.
    void eraseIf(const std::function<bool(const UsageRecord&)>& leaveOut);
};

}  // namespace usagekit
