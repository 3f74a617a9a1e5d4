// The per-file parse cache ("usage-scan.json", version 4). A file whose size is exactly
// the same and whose modification time moved by less than half a second is not read
// again: its folded records come from here. One cache lives for one local scan.
//
// Every rescan loads the whole file (megabytes for a heavy user). Each save therefore also
// writes "usage-scan.bin", a binary image of the same entries tied to the JSON file it
// mirrors, and load() reads that image instead whenever the JSON file is still the one it
// mirrors; otherwise the JSON is read, with simdjson's On-Demand parser straight into
// entries. A scan that changed the cache hands the writing to a background thread
// (saveInBackground).
#pragma once

#include "core/directory_index.h"
#include "core/json.h"
#include "core/movable_mutex.h"
#include "core/path_map.h"
#include "core/usage_record.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
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

    // An entry's records as they lie in the binary image the cache was read from: checked
    // when the image was read, unpacked only when a scan asks for them. A rescan of
    // unchanged logs thus builds each record once, in its results, rather than once into
    // the cache and again as a copy. The image is held by the cache that read it, and by
    // any FoundRecords the records were found into (see packedImage()); packed records
    // themselves do not count references, which thousands of copies from two threads at
    // once would bounce between the cores' caches.
    class PackedRecords {
      public:
        // Where one record lies in the image, and its date: noted when the image was read,
        // so that records can be sorted by date before any is built.
        struct Record {
            double date;
            std::string_view bytes;  // for unpack()
        };
        // An image as read, with all of its records in order.
        struct Image {
            std::string bytes;
            std::vector<Record> records;
        };

        PackedRecords() = default;
        // The `count` records from `image->records[first]` on, which lie in `bytes`.
        PackedRecords(const Image* image, std::string_view bytes, uint32_t first, uint32_t count)
            : m_image(image), m_bytes(bytes), m_first(first), m_count(count) {}
        uint32_t count() const { return m_count; }
        std::string_view bytes() const { return m_bytes; }
        std::span<const Record> records() const {
            if (!m_image) return {};
            return std::span(m_image->records).subspan(m_first, m_count);
        }
        void appendTo(std::vector<UsageRecord>& out) const;
        // Builds the record whose bytes records() gave, into `into`.
        static void unpack(std::string_view bytes, UsageRecord& into);

      private:
        const Image* m_image = nullptr;
        std::string_view m_bytes;
        uint32_t m_first = 0;
        uint32_t m_count = 0;
    };

    struct Entry {
        int64_t size = 0;
        double modified = 0;
        // The records, unless they are still `packed`: never both.
        std::vector<UsageRecord> records;
        // Whether this scan asked for the file (through hit or store); not saved.
        bool visited = false;
        PackedRecords packed = {};

        size_t recordCount() const { return records.size() + packed.count(); }
        void appendRecordsTo(std::vector<UsageRecord>& out) const;
        std::vector<UsageRecord> allRecords() const;

        void encode(JsonWriter& writer) const;
        static std::optional<Entry> decode(simdjson::ondemand::value json);
        bool operator==(const Entry& other) const {
            return size == other.size && modified == other.modified &&
                   allRecords() == other.allRecords();
        }
    };

    // A file's size and modification time (seconds since 1970); both 0 when unreadable.
    struct Stamp {
        int64_t size = 0;
        double modified = 0;
    };

    using Parse = std::function<std::vector<UsageRecord>(const std::filesystem::path&)>;
    using ParseText =
        std::function<std::vector<UsageRecord>(std::string_view text, const std::string& session)>;

    // Written in ascending order of path. Loaded from an image, the paths are views into it.
    PathMap<Entry> files;
    int64_t version = kVersion;
    // False while the cache equals what load() read from the file: save() then has
    // nothing to write, which keeps a rescan of unchanged logs to stats and one read.
    bool changed = true;

    static std::filesystem::path file();
    // The saved cache; an empty one when missing, undecodable or of another version.
    // Waits for a background save still being written, so a scan never reads an older file.
    static ScanCache load();
    // The same, read on a background thread while the caller walks the log directories
    // (the directory index is read by the first walk to need it). The members that need
    // `files` wait for the read; anything else touching `files` calls settle() first.
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
    // A copy of the cached entry when it still matches `current` (packed records copy for
    // next to nothing). Either way the path counts as visited: a miss is always followed by
    // store(). Sources scan at the same time, so hit() and store() may be called from
    // several threads at once; what hit() returns is the caller's own.
    //
    // A log's time need only match to within half a second, because some file systems and
    // copies keep coarser times than others; a file rewritten in place at the same size,
    // such as a database, must match `exactly`.
    enum class Times { withinHalfSecond, exactly };
    std::optional<Entry> hit(const std::string& path, const Stamp& current,
                             Times match = Times::withinHalfSecond);
    void store(const std::string& path, const Stamp& current, std::vector<UsageRecord> records);

    // The file's records, from the cache or by calling `parse(path)`.
    std::vector<UsageRecord> records(const std::filesystem::path& path, const Parse& parse);
    // On a miss, reads the whole file as text (unreadable: empty) and passes it with the
    // file's name less its extension as the session.
    std::vector<UsageRecord> recordsOfText(const std::filesystem::path& path,
                                           const ParseText& parse);

    // What the packed records hit() hands out point into, if any were loaded: whoever keeps
    // such records beyond this cache's life holds this too.
    std::shared_ptr<const void> packedImage();
    // Empty records, as many as the loaded image holds: a rescan of unchanged logs finds them
    // all, and unpacks them into these. loadInBackground() makes them on its thread once the
    // image is read, while the sources still stat their logs; making thousands of records
    // is mostly first touches of fresh memory. Empty when there is no image, or once taken.
    std::vector<UsageRecord> takeSlots();

    // Drops the entries of every file this scan did not ask for: logs that are gone.
    void pruneUnvisited();

    // What the log directories held, so that only changed ones are listed again (passed to
    // Scan::files by the sources). Loaded and saved with the cache, in a file of its own.
    DirectoryIndex directories;

    void encode(JsonWriter& writer) const;
    // A log's path as a key of the JSON file. JSON holds only UTF-8, and a path may be any
    // bytes but NUL: one that is not UTF-8 is stored as NUL followed by the path
    // percent-encoded, which no path can be mistaken for, so that it reads back unchanged
    // and the log is not parsed again on every scan.
    static std::string storedPath(std::string_view path);
    // The path a key names; absent for a key no path gives.
    static std::optional<std::string> pathOfStored(std::string_view key);
    // The cache in `text`, strictly: any entry or record that does not decode fails the
    // whole cache, as does text that is not one JSON object.
    static std::optional<ScanCache> decode(const simdjson::padded_string& text);

    // A file as it stands: writing to it, or renaming another file over it, changes this.
    struct FileIdentity {
        uint64_t device = 0;
        uint64_t inode = 0;
        int64_t size = 0;
        int64_t modified = 0;       // nanoseconds since 1970
        int64_t statusChanged = 0;  // nanoseconds since 1970
        bool operator==(const FileIdentity&) const = default;
    };
    static std::optional<FileIdentity> identity(const std::filesystem::path& path);

    static std::filesystem::path imageFile();
    // This cache as reading the JSON file `of` gives it back (dates in whole seconds), as a
    // binary image; nothing when some value would not come back from JSON exactly, in which
    // case the JSON alone is read.
    std::optional<std::string> image(const FileIdentity& of) const;
    // The cache in `image` when the image is intact and mirrors `of`. Its entries keep
    // their records packed in the image.
    static std::optional<ScanCache> fromImage(std::string image, const FileIdentity& of);

  private:
    // The JSON file this cache was read from, while the image on disk does not mirror it:
    // the next save writes the image even when the entries did not change.
    std::optional<FileIdentity> m_imageMissingFor;
    std::shared_ptr<const PackedRecords::Image> m_packedImage;
    std::vector<UsageRecord> m_slots;  // for takeSlots()
    // One empty slot per packed record, unless there is no memory for them.
    void makeSlots() noexcept;

    // The entries saved in `json` (through `image` when that mirrors it), or an empty cache.
    static ScanCache readSaved(const std::filesystem::path& json,
                               const std::filesystem::path& image);
    // Writes `json` when the entries changed, then `image` whenever the one on disk does not
    // mirror `json`. False when `json` could not be written; a failed image is ignored.
    static bool writeSaved(const ScanCache& cache, const std::filesystem::path& json,
                           const std::filesystem::path& image);

    struct Loading;
    std::shared_ptr<Loading> m_loading;  // the background read of loadInBackground()
    // Guards `files` and the background read while sources scan side by side.
    MovableMutex m_mutex;
    void settleLocked();
};

}  // namespace usagekit
