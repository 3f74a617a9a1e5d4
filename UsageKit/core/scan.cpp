#include "core/scan.h"

#include "core/checked.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <iterator>
#include <span>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace usagekit::Scan {

namespace {

using Listing = DirectoryIndex::Listing;

int64_t nanoseconds(const struct statx_timestamp& time) {
    return static_cast<int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

// The directory's entries in directory order, hidden names (and "." and "..") left out.
// Entry types come from the directory itself where the file system gives them, so a
// listing costs no stat per entry. False when the directory cannot be opened. A listing cut
// short by a read error, or with an entry whose type could not be read, is walked but has
// its change time cleared, so that the index never keeps it.
bool list(int at, const char* path, Listing& listing) {
    const int fd = ::openat(at, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return false;
    DIR* directory = ::fdopendir(fd);
    if (!directory) {
        ::close(fd);
        return false;
    }
    DirectoryIndex::ListingBuilder read;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(directory);
        if (!entry) {
            if (errno != 0) listing.changed = 0;
            break;
        }
        const std::string_view name = entry->d_name;
        if (name.empty() || name[0] == '.') continue;
        bool isDirectory = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN) {
            struct stat info {};
            if (::fstatat(fd, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0)
                isDirectory = S_ISDIR(info.st_mode);
            else
                listing.changed = 0;
        }
        read.add(name, isDirectory);
    }
    ::closedir(directory);
    listing = std::move(read).done(listing.changed);
    return true;
}

struct Walk {
    std::span<const std::string_view> named;
    DirectoryIndex* index;
    int64_t now;                                // nanoseconds since 1970, when the walk began
    std::span<std::vector<std::string>> found;  // one list per ending in `named`
    // The root, open, and how much of a path below it names it: the directories below are
    // reached relative to it, which spares each stat and open the walk down the whole path.
    int root;
    size_t rootLength;
    // The directory being visited; each level appends its entries' names and cuts them off
    // again, so the walk builds no path it does not keep.
    std::string path;

    // Depth-first, each entry before its contents. Only the root itself may be a link.
    void visit(int depth) {
        const char* relative = depth == 0 ? "." : path.c_str() + rootLength;
        Listing fresh;
        const Listing* listing = nullptr;
        if (index) {
            struct statx info {};
            if (::statx(root, relative, AT_SYMLINK_NOFOLLOW, STATX_TYPE | STATX_CTIME, &info) !=
                    0 ||
                !S_ISDIR(info.stx_mode))
                return;
            fresh.changed = nanoseconds(info.stx_ctime);
            listing = index->reuse(path, fresh.changed);
        }
        if (!listing) {
            if (!list(root, relative, fresh)) return;
            listing = &fresh;
        }
        const size_t length = path.size();
        if (path != "/") path += '/';
        const size_t parentLength = path.size();
        for (const DirectoryIndex::Entry& entry : listing->entries) {
            path.resize(parentLength);
            path += entry.name;
            for (size_t i = 0; i < named.size(); ++i)
                if (entry.name.ends_with(named[i])) found[i].push_back(path);
            // No log tree is anywhere near this deep; a loop of bind mounts could be.
            if (entry.isDirectory && depth < 64) visit(depth + 1);
        }
        path.resize(length);
        if (index && listing == &fresh) index->listed(path, std::move(fresh), now);
    }
};

}  // namespace

std::vector<std::string> files(const fs::path& under, std::initializer_list<std::string_view> named,
                               DirectoryIndex* index) {
    std::vector<std::vector<std::string>> found(named.size());
    std::string root = under.string();
    while (root.size() > 1 && root.back() == '/')
        root.pop_back();
    // The root is followed should it be a link; nothing below it is.
    const int rootFd = ::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (rootFd < 0) return {};
    struct timespec now {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const size_t rootLength = root == "/" ? 1 : root.size() + 1;
    Walk walk{std::span(named.begin(), named.size()),
              index,
              static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec,
              found,
              rootFd,
              rootLength,
              std::move(root)};
    walk.visit(0);
    ::close(rootFd);
    std::vector<std::string> all = std::move(found[0]);
    for (size_t i = 1; i < found.size(); ++i)
        std::move(found[i].begin(), found[i].end(), std::back_inserter(all));
    return all;
}

std::vector<std::string> files(const fs::path& under, std::string_view named,
                               DirectoryIndex* index) {
    return files(under, {named}, index);
}

namespace {

#if defined(__x86_64__)
// Tests the first, second and last byte of the needle at 32 offsets per step and compares
// the whole needle only where all three match: quotes are everywhere in JSON, but a quote
// followed by the needle's second byte with its last byte in place is rare.
__attribute__((target("avx2"))) size_t findAVX2(std::string_view text, std::string_view needle) {
    const char* p = text.data();
    const size_t n = text.size(), k = needle.size();
    const __m256i first = _mm256_set1_epi8(needle[0]);
    const __m256i second = _mm256_set1_epi8(needle[1]);
    const __m256i last = _mm256_set1_epi8(needle[k - 1]);
    size_t i = 0;
    for (; i + k - 1 + 32 <= n; i += 32) {
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + i));
        const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + i + 1));
        const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + i + k - 1));
        unsigned mask = static_cast<unsigned>(_mm256_movemask_epi8(_mm256_and_si256(
            _mm256_and_si256(_mm256_cmpeq_epi8(a, first), _mm256_cmpeq_epi8(b, second)),
            _mm256_cmpeq_epi8(c, last))));
        while (mask) {
            const int bit = __builtin_ctz(mask);
            if (std::memcmp(p + i + bit, needle.data(), k) == 0)
                return i + static_cast<size_t>(bit);
            mask &= mask - 1;
        }
    }
    const size_t rest = text.substr(i).find(needle);
    return rest == std::string_view::npos ? rest : i + rest;
}

#endif

}  // namespace

bool hasAVX2() {
#if defined(__x86_64__)
    static const bool supported = __builtin_cpu_supports("avx2");
    return supported;
#else
    return false;
#endif
}

size_t find(std::string_view text, std::string_view needle) {
#if defined(__x86_64__)
    if (hasAVX2() && needle.size() >= 2) return findAVX2(text, needle);
#endif
    return text.find(needle);
}

bool contains(std::string_view text, std::string_view needle) {
    return find(text, needle) != std::string_view::npos;
}

std::optional<Date> date(std::string_view text) {
    return ISO8601::parse(text);
}

namespace {

// Folds keep whole seconds, as the scan cache does: a log's records read again from the
// cache are then equal to those parsed from it, and sort among others in the same order.
Date wholeSeconds(Date date) {
    return Date{std::floor(date.secondsSince1970)};
}

void appendKey(std::string& key, const UsageRecord& r, std::string_view dayStart) {
    key += r.provider.id;
    key += '|';
    key += r.model;
    key += '|';
    key += dayStart;
    key += '|';
    if (r.project) key += *r.project;
    key += '|';
    if (r.session) key += *r.session;
}

}  // namespace

std::string foldKey(const UsageRecord& r) {
    std::string key;
    key.reserve(r.provider.id.size() + r.model.size() + 64);
    appendKey(key, r, doubleDescription(Calendar::startOfDay(r.date).secondsSince1970));
    return key;
}

bool Folder::addToExisting(const UsageRecord& record) {
    if (record.reportedCostUSD && !std::isfinite(*record.reportedCostUSD)) return true;
    const double day = Calendar::startOfDay(record.date).secondsSince1970;
    // Compared bit for bit: 0.0 and -0.0 are equal yet read differently.
    if (m_dayText.empty() || std::bit_cast<uint64_t>(day) != std::bit_cast<uint64_t>(m_day)) {
        m_day = day;
        m_dayText = doubleDescription(day);
    }
    m_key.clear();
    appendKey(m_key, record, m_dayText);
    const auto it = m_index.find(std::string_view(m_key));
    if (it == m_index.end()) return false;

    UsageRecord& into = m_folded[it->second];
    // Costs are summed like counts: a sum that is no longer finite drops the record.
    std::optional<double> cost = into.reportedCostUSD;
    if (record.reportedCostUSD) {
        cost = cost.value_or(0) + *record.reportedCostUSD;
        if (!std::isfinite(*cost)) return true;
    }
    try {
        // Sum into temporaries first so that an overflow leaves `into` untouched.
        const int64_t calls = checkedAdd(into.calls, record.calls);
        const int64_t input = checkedAdd(into.input, record.input);
        const int64_t output = checkedAdd(into.output, record.output);
        const int64_t cacheRead = checkedAdd(into.cacheRead, record.cacheRead);
        const int64_t cacheWrite = checkedAdd(into.cacheWrite, record.cacheWrite);
        const int64_t reasoning = checkedAdd(into.reasoning, record.reasoning);
        checkedAdd(checkedAdd(checkedAdd(input, output), cacheRead), cacheWrite);
        into.calls = calls;
        into.input = input;
        into.output = output;
        into.cacheRead = cacheRead;
        into.cacheWrite = cacheWrite;
        into.reasoning = reasoning;
    } catch (const OutOfRange&) {
        return true;
    }
    into.reportedCostUSD = cost;
    if (const Date date = wholeSeconds(record.date); date > into.date) into.date = date;
    return true;
}

void Folder::start(UsageRecord record) {
    m_index.emplace(m_key, m_folded.size());
    record.id = m_key;
    record.date = wholeSeconds(record.date);
    m_folded.push_back(std::move(record));
}

void Folder::add(const UsageRecord& record) {
    if (!addToExisting(record)) start(record);
}

void Folder::add(UsageRecord&& record) {
    if (!addToExisting(record)) start(std::move(record));
}

std::vector<UsageRecord> fold(const std::vector<UsageRecord>& records) {
    Folder folder;
    for (const UsageRecord& record : records)
        folder.add(record);
    return folder.take();
}

bool hasTokens(const UsageRecord& record) {
    try {
        return record.total() >= 1;
    } catch (const OutOfRange&) {
        return false;
    }
}

std::vector<UsageRecord> finish(const std::vector<UsageRecord>& records) {
    Folder folder;
    for (const UsageRecord& record : records)
        if (hasTokens(record)) folder.add(record);
    return folder.take();
}

}  // namespace usagekit::Scan
