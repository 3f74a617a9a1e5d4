// What every log source shares: finding log files, reading the tools' timestamps, walking
// lines without copying them, and folding per-request records into one per provider,
// model, local day, project and session.
#pragma once

#include "core/date.h"
#include "core/directory_index.h"
#include "core/usage_record.h"

#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace usagekit::Scan {

namespace fs = std::filesystem;

// Every entry below `under` (recursively, hidden files and directories skipped, links
// never followed) whose name ends with `named`, each entry before its contents, in
// directory order. A missing directory gives an empty list; unreadable ones are passed over.
// With an index, a directory whose change time is still the recorded one is not listed
// again, and the listings of settled directories are kept in the index for the next scan.
// Paths come back as plain strings: a rescan handles thousands of them, and a
// std::filesystem::path allocates every component of itself again.
std::vector<std::string> files(const fs::path& under, std::string_view named,
                               DirectoryIndex* index = nullptr);
// The same for several endings from one walk: every entry ending with the first, then every
// one ending with the second, and so on, as one call per ending would list them. Each
// directory is stat'ed once rather than once per ending.
std::vector<std::string> files(const fs::path& under, std::initializer_list<std::string_view> named,
                               DirectoryIndex* index = nullptr);

// ISO 8601 with or without fractional seconds; absent otherwise.
std::optional<Date> date(std::string_view text);

// provider|model|start of the local day (as doubleDescription)|project|session
std::string foldKey(const UsageRecord& record);

// Folds records one at a time, so a reader of a huge log holds one record per day and
// context rather than one per request: counts and reported costs summed, the latest date
// kept, the id replaced by the key, in order of first appearance. A record whose addition
// would overflow is dropped, as is one whose cost is or would make the sum not finite.
// Dates are kept in whole seconds, as the scan cache keeps them.
//
// Adding to a fold that already exists allocates nothing: the key is built in a buffer the
// folder keeps, and a record is copied only when it starts a fold.
class Folder {
  public:
    void add(const UsageRecord& record);
    void add(UsageRecord&& record);
    std::vector<UsageRecord> take() { return std::move(m_folded); }

  private:
    // Builds the record's key into m_key and sums the record into the fold of that key;
    // false when there is none yet, the key left in m_key for start().
    bool addToExisting(const UsageRecord& record);
    void start(UsageRecord record);

    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const {
            return std::hash<std::string_view>()(text);
        }
    };
    std::vector<UsageRecord> m_folded;
    std::unordered_map<std::string, size_t, Hash, std::equal_to<>> m_index;
    std::string m_key;
    // Neighbouring records mostly share a day: the last day start and its text.
    double m_day = 0;
    std::string m_dayText;
};

std::vector<UsageRecord> fold(const std::vector<UsageRecord>& records);

// Whether a record is worth keeping: input + output + cacheRead + cacheWrite of at least 1
// (reasoning does not count), without overflow.
bool hasTokens(const UsageRecord& record);

// Calls `f(line)` for each non-empty line of `text`, split at "\n".
template <class F>
void forEachLine(std::string_view text, F&& f) {
    const char* p = text.data();
    const char* end = p + text.size();
    while (p < end) {
        const char* newline = static_cast<const char*>(std::memchr(p, '\n', end - p));
        const char* lineEnd = newline ? newline : end;
        if (lineEnd > p) f(std::string_view(p, static_cast<size_t>(lineEnd - p)));
        p = lineEnd + 1;
    }
}

// Whether this processor runs AVX2, which the hot searches use where it does.
bool hasAVX2();

// Whether `needle` occurs in `text`. The substring pre-filters of every log reader run
// this over every byte of every log, so it compares 32 positions at a time where the
// processor allows.
bool contains(std::string_view text, std::string_view needle);
// The offset of the first `needle` in `text`, or npos; the same search as contains().
size_t find(std::string_view text, std::string_view needle);

// How every log source ends: drop records whose input + output + cacheRead + cacheWrite
// is below 1 (or overflows), then fold the rest.
std::vector<UsageRecord> finish(const std::vector<UsageRecord>& records);

}  // namespace usagekit::Scan
