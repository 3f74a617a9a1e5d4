// The per-file parse cache ("usage-scan.json", version 4). A file whose size is exactly
// the same and whose modification time moved by less than half a second is not read
// again: its folded records come from here. One cache lives for one local scan.
//
// Every rescan loads the whole file (megabytes for a heavy user), so load() reads it with
// simdjson's On-Demand parser straight into entries; a scan that changed it hands the
// writing to a background thread (saveInBackground).
#pragma once

#include "core/directory_index.h"
#include "core/json.h"
#include "core/usage_record.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace usagekit {

struct ScanCache {
    static constexpr int64_t kVersion = 4;

    ScanCache() = default;
    // Moved, never copied: one cache lives for one scan, and may still be being read.
    ScanCache(ScanCache&&) = default;
    ScanCache& operator=(ScanCache&&) = default;
    ScanCache(const ScanCache&) = delete;
    ScanCache& operator=(const ScanCache&) = delete;

    struct Entry {
        int64_t size = 0;
        double modified = 0;
        std::vector<UsageRecord> records;

        void encode(JsonWriter& writer) const;
        static std::optional<Entry> decode(simdjson::ondemand::value json);
        bool operator==(const Entry&) const = default;
    };

    // A file's size and modification time (seconds since 1970); both 0 when unreadable.
    struct Stamp {
        int64_t size = 0;
        double modified = 0;
    };

    using Parse = std::function<std::vector<UsageRecord>(const std::filesystem::path&)>;
    using ParseText =
        std::function<std::vector<UsageRecord>(std::string_view text, const std::string& session)>;

    std::unordered_map<std::string, Entry> files;  // written in ascending order of path
    int64_t version = kVersion;
    // False while the cache equals what load() read from the file: save() then has
    // nothing to write, which keeps a rescan of unchanged logs to stats and one read.
    bool changed = true;

    static std::filesystem::path file();
    // The saved cache; an empty one when missing, undecodable or of another version.
    // Waits for a background save still being written, so a scan never reads an older file.
    static ScanCache load();
    // The same, read on a background thread while the caller walks the log directories
    // (only the directory index, which the walks need, is read at once). The members that
    // need `files` wait for the read; anything else touching `files` calls settle() first.
    static ScanCache loadInBackground();
    void settle();
    // Writes the cache when it changed; failures are ignored.
    void save();
    // The same on a background thread, for a scan done with its cache: the scan's records
    // are ready before the file is on disk. One save runs at a time, in order; the process
    // waits for the last one when it exits normally.
    static void saveInBackground(ScanCache cache);
    static void waitForSave();

    static Stamp stamp(const std::filesystem::path& path);
    // The same for `path` relative to the open directory `directory` (or AT_FDCWD).
    static Stamp stamp(int directory, const char* path);
    // The cached entry when it still matches `current`, else nullptr.
    const Entry* hit(const std::string& path, const Stamp& current);
    void store(const std::string& path, const Stamp& current, std::vector<UsageRecord> records);

    // The file's records, from the cache or by calling `parse(path)`.
    std::vector<UsageRecord> records(const std::filesystem::path& path, const Parse& parse);
    // On a miss, reads the whole file as text (unreadable: empty) and passes it with the
    // file's name less its extension as the session.
    std::vector<UsageRecord> recordsOfText(const std::filesystem::path& path,
                                           const ParseText& parse);

    void prune(const std::unordered_set<std::string>& keeping);

    // What the log directories held, so that only changed ones are listed again (passed to
    // Scan::files by the sources). Loaded and saved with the cache, in a file of its own.
    DirectoryIndex directories;

    // The paths asked for during this scan (through records() or recordsOfFiles): the log
    // files that exist now. Not saved.
    std::unordered_set<std::string> visited;

    void encode(JsonWriter& writer) const;
    // The cache in `text`, strictly: any entry or record that does not decode fails the
    // whole cache, as does text that is not one JSON object.
    static std::optional<ScanCache> decode(const simdjson::padded_string& text);

  private:
    struct Loading;
    std::shared_ptr<Loading> m_loading;  // the background read of loadInBackground()
};

}  // namespace usagekit
