// What the ledger asks of every local source: who it is, and all of its records.
#pragma once

#include "core/found_records.h"
#include "core/provider.h"
#include "core/scan_cache.h"
#include "core/usage_record.h"

#include <vector>

namespace usagekit {

class UsageSource {
  public:
    virtual ~UsageSource() = default;
    virtual Provider provider() const = 0;
    // Every record the source has now, in order. Files that did not change come from `cache`
    // (their records still packed), and the source stores what it parsed there. A failure
    // of the source as a whole throws an exception whose what() is the text the user reads;
    // single bad lines never throw.
    virtual FoundRecords scan(ScanCache& cache) const = 0;
};

}  // namespace usagekit
