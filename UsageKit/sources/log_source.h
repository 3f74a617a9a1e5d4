// What the log-file sources share: remembering the request keys a file has already
// counted, and gathering the records of a list of files through the scan cache.
// Both are per-scan or per-file values with no shared state, so files can be parsed on
// several threads at once.
#pragma once

#include "core/found_records.h"
#include "core/scan_cache.h"
#include "core/spread_thread.h"
#include "core/usage_record.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_set>
#include <vector>

namespace usagekit {

// The keys seen so far in one file. Looking a key up allocates nothing, which matters
// because most keys are repeats (a request writes one line per content block).
class SeenKeys {
  public:
    // True the first time `key` is offered, false on every repeat.
    bool insert(std::string_view key) {
        if (m_keys.find(key) != m_keys.end()) return false;
        m_keys.emplace(key);
        return true;
    }

  private:
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const {
            return std::hash<std::string_view>()(text);
        }
    };
    std::unordered_set<std::string, Hash, std::equal_to<>> m_keys;
};

// The records of every file in order, each from the cache (still packed) when the file is
// unchanged or from `parse` when not. Files that must be parsed are parsed on all cores (or on
// $TALLY_SCAN_THREADS threads), and their records gathered in file order, so the result
// never depends on timing. `parse` must therefore keep no shared mutable state. A file
// whose `parse` throws gives no records and is not cached. Throws only what the cache throws.
FoundRecords recordsOfFiles(ScanCache& cache, const std::vector<std::string>& files,
                            const ScanCache::Parse& parse);

// How many threads parse files: $TALLY_SCAN_THREADS when it is a positive number, else
// the number of cores.
unsigned scanThreads();

// Runs `work(i)` for every i below `count` on up to scanThreads() threads (this one among
// them), at least `perThreadAtLeast` items per thread, each thread taking the next index as
// it is free. `work` must touch only what belongs to its own index, and must not throw.
template <class Work>
void onScanThreads(size_t count, size_t perThreadAtLeast, const Work& work) {
    std::atomic<size_t> next{0};
    auto drain = [&] {
        for (size_t i; (i = next.fetch_add(1, std::memory_order_relaxed)) < count;)
            work(i);
    };
    const size_t threads =
        std::min<size_t>(scanThreads(), (count + perThreadAtLeast - 1) / perThreadAtLeast);
    std::vector<SpreadThread> helpers;
    for (size_t t = 1; t < threads; ++t) {
        try {
            helpers.emplace_back(drain);
        } catch (const std::system_error&) {
            break;  // no more threads to be had: the ones running take it all
        }
    }
    drain();
    for (SpreadThread& helper : helpers)
        helper.join();
}

}  // namespace usagekit
