#include "core/found_records.h"

#include <algorithm>
#include <iterator>

namespace usagekit {

FoundRecords::FoundRecords(std::vector<UsageRecord> records) {
    add(std::move(records));
}

void FoundRecords::add(std::vector<UsageRecord> records) {
    if (!records.empty()) runs.push_back({std::move(records), {}});
}

void FoundRecords::add(ScanCache::Entry entry, ScanCache& cache) {
    if (entry.packed.count() > 0) hold(cache.packedImage());
    if (entry.recordCount() > 0) runs.push_back(Run::of(std::move(entry)));
}

void FoundRecords::hold(std::shared_ptr<const void> image) {
    if (image && std::find(held.begin(), held.end(), image) == held.end())
        held.push_back(std::move(image));
}

size_t FoundRecords::size() const {
    size_t count = 0;
    for (const Run& run : runs)
        count += run.parsed.size() + run.packed.count();
    return count;
}

std::vector<UsageRecord> FoundRecords::all() && {
    if (runs.size() == 1 && runs[0].packed.count() == 0) return std::move(runs[0].parsed);
    std::vector<UsageRecord> records;
    records.reserve(size());
    for (Run& run : runs) {
        std::move(run.parsed.begin(), run.parsed.end(), std::back_inserter(records));
        run.packed.appendTo(records);
    }
    runs.clear();
    return records;
}

void FoundRecords::eraseIf(const std::function<bool(const UsageRecord&)>& leaveOut) {
    std::vector<UsageRecord> records = std::move(*this).all();
    std::erase_if(records, leaveOut);
    runs.clear();
    add(std::move(records));
}

}  // namespace usagekit
