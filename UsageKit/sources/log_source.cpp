#include "sources/log_source.h"

#include "core/paths.h"

#include <fcntl.h>
#include <unistd.h>

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
    // Counted once: glibc reads /sys/devices/system/cpu/online for every count, and a scan
    // asks a dozen times.
    static const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    return cores;
}

namespace {

// The longest directory, with its trailing slash, that holds every file: "/" when absolute
// paths share only the root, "" when relative ones share nothing or the two kinds mix.
std::string_view commonDirectory(const std::vector<std::string>& files) {
    if (files.empty()) return {};
    std::string_view common = files[0];
    common = common.substr(0, common.rfind('/') + 1);  // npos + 1 == 0
    for (const std::string& file : files) {
        while (!common.empty() && !file.starts_with(common)) {
            if (common.size() == 1) return {};
            common = common.substr(0, common.rfind('/', common.size() - 2) + 1);
        }
    }
    return common;
}

// Every file's stamp, on all cores. A rescan of unchanged logs is mostly these stats, and
// most of a stat is the walk down the path: each is made relative to the directory the
// files share. Each block of files opens that directory for itself: in a process with
// several threads every use of a descriptor counts a reference on it, and two cores
// counting on the same one would pass its count back and forth on every stat.
std::vector<ScanCache::Stamp> stampsOf(const std::vector<std::string>& files) {
    std::vector<ScanCache::Stamp> found(files.size());
    const std::string common(commonDirectory(files));
    constexpr size_t kBlock = 256;
    onScanThreads((files.size() + kBlock - 1) / kBlock, 2, [&](size_t block) {
        const int directory =
            common.size() > 1 ? ::open(common.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC) : -1;
        const size_t skip = directory >= 0 ? common.size() : 0;
        const size_t end = std::min(files.size(), (block + 1) * kBlock);
        for (size_t i = block * kBlock; i < end; ++i)
            found[i] =
                ScanCache::stamp(directory >= 0 ? directory : AT_FDCWD, files[i].c_str() + skip);
        if (directory >= 0) ::close(directory);
    });
    return found;
}

}  // namespace

FoundRecords recordsOfFiles(ScanCache& cache, const std::vector<std::string>& files,
                            const ScanCache::Parse& parse) {
    const std::vector<ScanCache::Stamp> stamps = stampsOf(files);

    // Each file's records land in its own run, so the order never depends on timing.
    FoundRecords found;
    found.hold(cache.packedImage());
    found.runs.resize(files.size());
    std::vector<size_t> misses;
    for (size_t i = 0; i < files.size(); ++i) {
        if (std::optional<ScanCache::Entry> entry = cache.hit(files[i], stamps[i]))
            found.runs[i] = FoundRecords::Run::of(std::move(*entry));
        else
            misses.push_back(i);
    }
    // A file whose parse fails (out of memory on some monstrous log) gives no records this
    // time and is not stored, so the next scan tries it again; the source's other files
    // stand, and nothing escapes a helper thread.
    std::vector<char> failed(files.size(), 0);
    onScanThreads(misses.size(), 1, [&](size_t m) {
        try {
            found.runs[misses[m]].parsed = parse(files[misses[m]]);
        } catch (const std::exception&) {
            failed[misses[m]] = 1;
        }
    });
    for (size_t i : misses)
        if (!failed[i]) cache.store(files[i], stamps[i], found.runs[i].parsed);
    return found;
}

}  // namespace usagekit
