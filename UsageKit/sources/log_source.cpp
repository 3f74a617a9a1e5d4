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

std::vector<UsageRecord> recordsOfFiles(ScanCache& cache,
                                        const std::vector<std::filesystem::path>& files,
                                        const ScanCache::Parse& parse) {
    std::vector<ScanCache::Stamp> stamps;
    std::vector<std::string> paths;
    std::vector<size_t> misses;
    stamps.reserve(files.size());
    paths.reserve(files.size());
    for (size_t i = 0; i < files.size(); ++i) {
        paths.push_back(files[i].string());
        cache.visited.insert(paths.back());
        stamps.push_back(ScanCache::stamp(files[i]));
        if (!cache.hit(paths[i], stamps[i])) misses.push_back(i);
    }

    // Each thread takes the next file to parse; results land in the file's own slot.
    std::vector<std::vector<UsageRecord>> parsed(files.size());
    std::atomic<size_t> next{0};
    auto work = [&] {
        for (size_t m; (m = next.fetch_add(1)) < misses.size();)
            parsed[misses[m]] = parse(files[misses[m]]);
    };
    const size_t threads = std::min<size_t>(scanThreads(), misses.size());
    std::vector<std::thread> helpers;
    for (size_t t = 1; t < threads; ++t)
        helpers.emplace_back(work);
    work();
    for (std::thread& helper : helpers)
        helper.join();

    std::vector<UsageRecord> all;
    size_t m = 0;
    for (size_t i = 0; i < files.size(); ++i) {
        if (m < misses.size() && misses[m] == i) {
            ++m;
            cache.store(paths[i], stamps[i], parsed[i]);
            all.insert(all.end(), std::make_move_iterator(parsed[i].begin()),
                       std::make_move_iterator(parsed[i].end()));
        } else {
            const auto& cached = cache.hit(paths[i], stamps[i])->records;
            all.insert(all.end(), cached.begin(), cached.end());
        }
    }
    return all;
}

}  // namespace usagekit
