// Usage that Tally records itself ("app-usage.json" in the support directory): an
// append-only list of at most the 5000 newest records, each keeping its own provider. As a
// source it hands them all to the ledger, whose scan lets them stand in for the log
// records of the same sessions.
// Never reports a failure: a missing or damaged file reads as empty (a damaged one is moved
// aside, and the next append starts a new file); a failed write is dropped. Appends are
// read-modify-write without a lock.
#pragma once

#include "sources/usage_source.h"

#include <cstddef>
#include <filesystem>
#include <vector>

namespace usagekit {

class AppLedger : public UsageSource {
  public:
    static constexpr size_t kLimit = 5000;

    // Only to be a UsageSource; the records keep the providers they were stored with.
    Provider provider() const override { return Provider::claudeCode; }
    FoundRecords scan(ScanCache& cache) const override;

    static std::filesystem::path file();
    static void append(const UsageRecord& record);
    static std::vector<UsageRecord> all();  // oldest first
};

}  // namespace usagekit
