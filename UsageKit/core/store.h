// Tally's state files: JSON in the support directory, replaced atomically.
//
// save() writes a hidden temporary next to the target, fsyncs it, renames it over the
// target and fsyncs the directory: a crash at any instant leaves the old file or the new
// one, never a torn one. loadState() moves a file that does not decode aside (to
// "<name>.unreadable-<UTC stamp>") instead of letting a later save overwrite it.
#pragma once

#include "core/date.h"
#include "core/json_coding.h"

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>

namespace usagekit::Store {

namespace fs = std::filesystem;

// The most readFile() reads. Tally's largest state, a heavy user's scan cache, is tens of
// megabytes; a file beyond this is damaged or not ours, and reading it whole could take
// all memory.
inline constexpr size_t kMaxFileBytes = size_t{512} << 20;

// The file's bytes, or absent when it cannot be read, is not a regular file or holds more
// than kMaxFileBytes.
std::optional<std::string> readFile(const fs::path& path);

// Replaces `path` with `data` as described above. Throws std::system_error when the
// directory cannot be created or the temporary cannot be written; a failed final rename
// is not reported (the temporary is left behind). Temporaries of `path` that a killed
// process left are removed first: a save locks its temporary until the rename, so one that
// is not locked is stale. `written`, when given, gets the status of the file written.
void saveData(const std::string& data, const fs::path& path, struct stat* written = nullptr);

// The two halves of saveData, apart so that tests can stop between them. The temporary is
// not locked once writeTemporary returns, as if its writer had been killed.
fs::path writeTemporary(const std::string& data, const fs::path& target);
void replace(const fs::path& temporary, const fs::path& target);

// Where an unreadable file goes at `now`: "<name>.unreadable-2026-11-15T18-20-00Z".
fs::path quarantinePath(const fs::path& path, Date now);
// Moves the file there (with "-2", "-3", ... added should that name be taken, so one
// quarantined file never replaces another) and returns where it went.
fs::path quarantine(const fs::path& path);

template <class T>
std::optional<T> load(const fs::path& path) {
    auto data = readFile(path);
    if (!data) return std::nullopt;
    auto document = JSONDocument::parse(*data);
    if (!document) return std::nullopt;
    return JSONCoding<T>::decode(document->root());
}

template <class T>
void save(const T& value, const fs::path& path) {
    saveData(jsonData(value, true), path);
}

// For state whose loss costs nothing but a recomputation (caches, announced keys,
// settings re-saved on the next change): a failed save is not reported. Returns whether
// the file was written.
template <class T>
bool saveQuietly(const T& value, const fs::path& path) noexcept {
    try {
        save(value, path);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

template <class T>
std::pair<std::optional<T>, std::optional<fs::path>> loadState(const fs::path& path) {
    std::error_code ec;
    if (!fs::exists(path, ec)) return {std::nullopt, std::nullopt};
    if (auto value = load<T>(path)) return {std::move(value), std::nullopt};
    return {std::nullopt, quarantine(path)};
}

// How state Tally saves again after reading it is read (settings, prices, budgets, its own
// records, plan limits): a file that does not decode is moved aside, so that the next save
// starts a new file instead of overwriting what the user may want back. Caches and
// announced keys, which cost nothing but a recomputation, use load().
template <class T>
std::optional<T> loadOrMoveAside(const fs::path& path) {
    return loadState<T>(path).first;
}

}  // namespace usagekit::Store
