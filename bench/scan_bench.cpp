// Measures Tally's local scan on a generated home (bench/make_corpus) against the floor
// of simply reading every log byte once, in one process run:
//   floor   read every file from the page cache, count lines holding "usage" (one thread)
//   cold    a scan with an empty support directory (no cache)
//   warm    a rescan with nothing changed, in a fresh process (as `tally --scan` makes it)
//   in app  the same rescan in a process that has scanned before (as the desktop app makes
//           it every few minutes): its memory is already mapped
//   append  a rescan after one line was appended to one Claude Code log
//   stats   one stat of every log file and log directory on all cores, as a rescan stats
//           them and nothing else: the floor of a warm rescan, which no rescan that would
//           notice an appended line can go below
//   unzstd  decompressing every compressed log (.zst) once on one thread and nothing else:
//           what compressed logs add to a cold scan beyond the floor, which reads their
//           bytes as they lie on disk
// Each run happens in a freshly started process, so its peak RSS is its own; medians of
// --runs.
// A scan's records are ready before its cache is on disk (the cache is written on a
// background thread); "saved" is the time until the file is written too.
//
// Then what a user waits for: the real `tally` timed from exec to exit, loading of its
// libraries and the cache write included:
//   tally cold     `tally --scan` with an empty support directory
//   tally warm     `tally --scan` again, nothing changed
//   version        `tally --version`: the price of starting at all
#include "core/log_bytes.h"
#include "core/paths.h"
#include "core/scan.h"
#include "core/scan_cache.h"
#include "ledger/summary.h"
#include "ledger/usage_ledger.h"
#include "sources/log_source.h"

#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace usagekit;

namespace {

struct Corpus {
    std::vector<fs::path> files;
    std::vector<fs::path> directories;
    uint64_t bytes = 0;
};

Corpus logFiles(const fs::path& home) {
    Corpus corpus;
    for (const char* name : {".claude", ".codex", ".gemini", ".grok", ".copilot"}) {
        std::error_code ec;
        for (auto it = fs::recursive_directory_iterator(home / name, ec);
             !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
            if (it->is_directory()) corpus.directories.push_back(it->path());
            if (!it->is_regular_file()) continue;
            corpus.files.push_back(it->path());
            corpus.bytes += it->file_size();
        }
    }
    return corpus;
}

// The stats floor: every log file and log directory stat'ed once, relative to the home, in
// blocks on all cores as the scan stats its logs.
void statFloor(const fs::path& home, const Corpus& corpus) {
    std::vector<std::string> paths;
    for (const auto* list : {&corpus.directories, &corpus.files})
        for (const fs::path& path : *list)
            paths.push_back(path.lexically_relative(home).string());
    constexpr size_t kBlock = 256;
    onScanThreads((paths.size() + kBlock - 1) / kBlock, 2, [&](size_t block) {
        const int at = ::open(home.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        for (size_t i = block * kBlock; i < std::min(paths.size(), (block + 1) * kBlock); ++i) {
            struct stat info {};
            ::fstatat(at, paths[i].c_str(), &info, AT_SYMLINK_NOFOLLOW);
        }
        if (at >= 0) ::close(at);
    });
}

// The floor: every byte read once, lines split and searched, nothing parsed.
uint64_t readFloor(const Corpus& corpus) {
    std::vector<char> buffer(1 << 20);
    uint64_t hits = 0;
    for (const fs::path& file : corpus.files) {
        int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) continue;
        size_t kept = 0;
        for (;;) {
            ssize_t n = ::read(fd, buffer.data() + kept, buffer.size() - kept);
            if (n <= 0) break;
            std::string_view text(buffer.data(), kept + static_cast<size_t>(n));
            size_t start = 0;
            for (size_t nl; (nl = text.find('\n', start)) != std::string_view::npos; start = nl + 1)
                hits += text.substr(start, nl - start).find("\"usage\"") != std::string_view::npos;
            kept = text.size() - start;
            std::memmove(buffer.data(), buffer.data() + start, kept);
            if (kept == buffer.size()) buffer.resize(buffer.size() * 2);
        }
        ::close(fd);
    }
    return hits;
}

// Decompresses every compressed log once, one thread; returns the decoded bytes.
uint64_t decodeCompressed(const Corpus& corpus) {
    std::vector<char> buffer(1 << 20);
    uint64_t decoded = 0;
    for (const fs::path& file : corpus.files) {
        if (!isCompressedLog(file.native())) continue;
        const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) continue;
        LogBytes bytes(fd, true);
        for (ssize_t n; (n = bytes.read(buffer.data(), buffer.size())) > 0;)
            decoded += static_cast<uint64_t>(n);
        ::close(fd);
    }
    return decoded;
}

struct Sample {
    double ms = 0;       // until the work returned
    double savedMs = 0;  // until a background cache save, if any, was on disk as well
    double peakMB = 0;
};

// Runs of each quick whole-process line per round.
constexpr int kQuickRuns = 5;

// What a child process measures (`scan_bench --child WHAT --home DIR`).
enum class Work { floor, scan, rescan, stats, unzstd };
constexpr const char* kWorkNames[] = {"floor", "scan", "rescan", "stats", "unzstd"};

// Runs `what` in a freshly started copy of this program, as `tally --scan` runs: a forked
// child would inherit this process's heap and pay copy-on-write faults that no real scan
// pays. The wall times of the work (measured inside) and the child's peak RSS come back.
Sample inChild(Work what, const fs::path& home) {
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) return {};
    const std::string self = fs::read_symlink("/proc/self/exe").string();
    const std::string homeText = home.string();
    const std::string out = std::to_string(pipeFds[1]);
    const char* arguments[] = {self.c_str(), "--child",        kWorkNames[static_cast<int>(what)],
                               "--home",     homeText.c_str(), "--out",
                               out.c_str(),  nullptr};
    pid_t pid = 0;
    const int failed = ::posix_spawn(&pid, self.c_str(), nullptr, nullptr,
                                     const_cast<char* const*>(arguments), environ);
    ::close(pipeFds[1]);
    Sample sample;
    double times[2] = {0, 0};
    if (!failed && ::read(pipeFds[0], times, sizeof times) == sizeof times) {
        sample.ms = times[0];
        sample.savedMs = times[1];
    }
    ::close(pipeFds[0]);
    if (failed) return sample;
    struct rusage usage {};
    int status = 0;
    ::wait4(pid, &status, 0, &usage);
    sample.peakMB = static_cast<double>(usage.ru_maxrss) / 1024.0;
    return sample;
}

// Runs the real `tally` with `argument`, its output thrown away, from exec to exit.
Sample wholeProcess(const char* argument) {
    const char* arguments[] = {TALLY_BINARY, argument, nullptr};
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    Sample sample;
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    const int failed = ::posix_spawn(&pid, TALLY_BINARY, &actions, nullptr,
                                     const_cast<char* const*>(arguments), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (failed) return sample;
    struct rusage usage {};
    int status = 0;
    ::wait4(pid, &status, 0, &usage);
    sample.ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    sample.savedMs = sample.ms;
    sample.peakMB = static_cast<double>(usage.ru_maxrss) / 1024.0;
    return sample;
}

std::string loadAverage() {
    double load[3] = {0, 0, 0};
    if (::getloadavg(load, 3) < 3) return "unknown";
    char text[64];
    std::snprintf(text, sizeof text, "%.2f %.2f %.2f", load[0], load[1], load[2]);
    return text;
}

void scan() {
    UsageLedger ledger(Pricing::builtIn());
    ledger.scanLocal();
}

// The child's side: prepares, times the work, writes the times to `out`.
int runChild(std::string_view what, const fs::path& home, int out) {
    Corpus corpus;
    if (what == "floor" || what == "stats" || what == "unzstd") corpus = logFiles(home);
    if (what == "rescan") scan();
    ScanCache::waitForSave();
    const auto start = std::chrono::steady_clock::now();
    auto since = [&] {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
            .count();
    };
    if (what == "floor")
        readFloor(corpus);
    else if (what == "stats")
        statFloor(home, corpus);
    else if (what == "unzstd")
        decodeCompressed(corpus);
    else
        scan();
    double times[2] = {since(), 0};
    ScanCache::waitForSave();
    times[1] = since();
    return ::write(out, times, sizeof times) == sizeof times ? 0 : 1;
}

// Each time is its own median; the peak is the largest of all runs.
Sample median(const std::vector<Sample>& samples) {
    auto middle = [&](double Sample::*field) {
        std::vector<double> values;
        for (const Sample& s : samples)
            values.push_back(s.*field);
        std::sort(values.begin(), values.end());
        return values[values.size() / 2];
    };
    Sample m;
    m.ms = middle(&Sample::ms);
    m.savedMs = middle(&Sample::savedMs);
    for (const Sample& s : samples)
        m.peakMB = std::max(m.peakMB, s.peakMB);
    return m;
}

// `ratioTo` and `ratioName` add the ratio of this time to another, such as the floor's.
void report(const char* name, const Sample& s, const Corpus& corpus, size_t filesRead,
            double ratioTo = 0, const char* ratioName = "") {
    const double seconds = s.ms / 1000;
    std::printf("%-10s %10.1f ms %9.0f MB/s %10.0f files/s %8.1f MB peak %9.1f ms saved", name,
                s.ms, static_cast<double>(corpus.bytes) / (1 << 20) / seconds,
                static_cast<double>(filesRead) / seconds, s.peakMB, s.savedMs);
    if (ratioTo > 0) std::printf("   %.3f x %s", s.ms / ratioTo, ratioName);
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    fs::path home;
    int runs = 5;
    const char* child = nullptr;
    int out = -1;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--home") && i + 1 < argc)
            home = argv[++i];
        else if (!std::strcmp(argv[i], "--runs") && i + 1 < argc)
            runs = std::max(1, std::atoi(argv[++i]));
        else if (!std::strcmp(argv[i], "--child") && i + 1 < argc)
            child = argv[++i];
        else if (!std::strcmp(argv[i], "--out") && i + 1 < argc)
            out = std::atoi(argv[++i]);
    }
    if (child) {
        // HOME and TALLY_SUPPORT_DIR come from the parent.
        TallyPaths::setSupport(TallyPaths::environment("TALLY_SUPPORT_DIR"));
        return runChild(child, home, out);
    }
    if (home.empty() || !fs::is_directory(home)) {
        std::fprintf(stderr,
                     "usage: scan_bench --home DIR [--runs N]\n"
                     "DIR is a home written by make_corpus (DIR/.claude, DIR/.codex, ...).\n");
        return 2;
    }
    setenv("HOME", home.c_str(), 1);
    const fs::path support =
        fs::temp_directory_path() / ("tally-bench-" + std::to_string(::getpid()));
    setenv("TALLY_SUPPORT_DIR", support.c_str(), 1);
    TallyPaths::setSupport(support);

    const Corpus corpus = logFiles(home);
    std::printf(
        "corpus: %zu log files in %zu directories, %.1f MB under %s; %d runs each, "
        "medians; load average %s\n",
        corpus.files.size(), corpus.directories.size(),
        static_cast<double>(corpus.bytes) / (1 << 20), home.c_str(), runs, loadAverage().c_str());
    size_t compressedFiles = 0;
    uint64_t compressedBytes = 0;
    for (const fs::path& file : corpus.files)
        if (isCompressedLog(file.native())) {
            ++compressedFiles;
            compressedBytes += fs::file_size(file);
        }
    if (compressedFiles)
        std::printf("compressed: %zu logs, %.1f MB on disk, %.1f MB decoded\n", compressedFiles,
                    static_cast<double>(compressedBytes) / (1 << 20),
                    static_cast<double>(decodeCompressed(corpus)) / (1 << 20));
    readFloor(corpus);  // warm the page cache

    fs::path appended;
    for (const fs::path& file : corpus.files)
        if (file.string().find("/.claude/") != std::string::npos) {
            appended = file;
            break;
        }
    // Each round measures everything once, so that a slow spell of the machine weighs on
    // all the figures alike rather than on whichever was being measured at the time, and
    // the ratios stay fair.
    std::vector<Sample> floor, cold, warm, inApp, append, stats, unzstd;
    std::vector<Sample> tallyCold, tallyWarm, version;
    for (int r = 0; r < runs; ++r) {
        floor.push_back(inChild(Work::floor, home));
        fs::remove_all(support);
        cold.push_back(inChild(Work::scan, home));
        warm.push_back(inChild(Work::scan, home));
        inApp.push_back(inChild(Work::rescan, home));
        std::ofstream(appended, std::ios::app)
            << R"({"type":"user","message":{"role":"user","content":"one more line"},"uuid":"bench-)"
            << r << R"(","timestamp":"2026-01-01T00:00:00Z"})"
            << "\n";
        append.push_back(inChild(Work::scan, home));
        stats.push_back(inChild(Work::stats, home));
        if (compressedFiles) unzstd.push_back(inChild(Work::unzstd, home));
        fs::remove_all(support);
        tallyCold.push_back(wholeProcess("--scan"));
        // The quick ones vary most with the machine's load: more runs for their medians.
        for (int i = 0; i < kQuickRuns; ++i) {
            tallyWarm.push_back(wholeProcess("--scan"));
            version.push_back(wholeProcess("--version"));
        }
    }

    const Sample f = median(floor), c = median(cold);
    report("floor", f, corpus, corpus.files.size());
    report("cold", c, corpus, corpus.files.size(), f.ms, "floor");
    report("warm", median(warm), corpus, 0, c.ms, "cold");
    report("in app", median(inApp), corpus, 0, c.ms, "cold");
    report("append", median(append), corpus, 1, c.ms, "cold");
    report("stats", median(stats), corpus, 0, c.ms, "cold");
    if (compressedFiles) report("unzstd", median(unzstd), corpus, compressedFiles, f.ms, "floor");
    std::printf("whole processes of %s, exec to exit (%d runs of the first, %d of the others):\n",
                TALLY_BINARY, runs, runs * kQuickRuns);
    const Sample tc = median(tallyCold), v = median(version);
    report("tally cold", tc, corpus, corpus.files.size(), f.ms, "floor");
    report("tally warm", median(tallyWarm), corpus, 0, tc.ms, "cold");
    std::printf("%-10s %10.1f ms %44.1f MB peak\n", "version", v.ms, v.peakMB);
    std::printf("load average %s\n", loadAverage().c_str());
    fs::remove_all(support);
    return 0;
}
