#include "sources/log_source.h"

#include "core/paths.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <thread>

namespace usagekit {

unsigned scanThreads() {
    const std::string configured = TallyPaths::environment("TALLY_SCAN_THREADS");
    if (!configured.empty()) {
        try {
            const long value = std::stol(configured);
            if (value > 0) return static_cast<unsigned>(std::min<long>(value, 256));
        } catch (const std::exception&) {
        }
    }
    return std::max(1u, std::thread::hardware_concurrency());
}

namespace {

// Runs `work(i)` for every i below `count` on up to scanThreads() threads, each taking the
// next index as it is free. `work` must touch only what belongs to its own index.
template <class Work>
void onAllCores(size_t count, size_t perThreadAtLeast, const Work& work) {
    std::atomic<size_t> next{0};
    auto drain = [&] {
        for (size_t i; (i = next.fetch_add(1, std::memory_order_relaxed)) < count;)
            work(i);
    };
    const size_t threads =
        std::min<size_t>(scanThreads(), (count + perThreadAtLeast - 1) / perThreadAtLeast);
    std::vector<std::thread> helpers;
    for (size_t t = 1; t < threads; ++t)
        helpers.emplace_back(drain);
    drain();
    for (std::thread& helper : helpers)
        helper.join();
}

}  // namespace

std::vector<UsageRecord> recordsOfFiles(ScanCache& cache,
                                        const std::vector<std::filesystem::path>& files,
                                        const ScanCache::Parse& parse) {
    // A rescan of unchanged logs is mostly these stats, so they run on all cores too; a
    // thread is worth starting only for a few hundred of them.
    std::vector<ScanCache::Stamp> stamps(files.size());
    onAllCores(files.size(), 512, [&](size_t i) { stamps[i] = ScanCache::stamp(files[i]); });

    std::vector<const ScanCache::Entry*> cached(files.size());
    std::vector<size_t> misses;
    size_t count = 0;
    for (size_t i = 0; i < files.size(); ++i) {
        const std::string& path = files[i].native();
        cache.visited.insert(path);
        cached[i] = cache.hit(path, stamps[i]);
        if (cached[i])
            count += cached[i]->records.size();
        else
            misses.push_back(i);
    }

    // Results land in each file's own slot, so the order never depends on timing.
    std::vector<std::vector<UsageRecord>> parsed(files.size());
    onAllCores(misses.size(), 1, [&](size_t m) { parsed[misses[m]] = parse(files[misses[m]]); });

    for (size_t m : misses)
        count += parsed[m].size();
    std::vector<UsageRecord> all;
    all.reserve(count);
    for (size_t i = 0; i < files.size(); ++i) {
        if (cached[i]) {
            all.insert(all.end(), cached[i]->records.begin(), cached[i]->records.end());
        } else {
            all.insert(all.end(), parsed[i].begin(), parsed[i].end());
            cache.store(files[i].native(), stamps[i], std::move(parsed[i]));
        }
    }
    return all;
}

}  // namespace usagekit
