// What each log directory held when a scan last listed it, so that a rescan lists only the
// directories that changed since ("usage-scan-directories.bin", beside the scan cache, a
// binary image: every rescan reads all of it before its first step).
// A heavy user's log trees hold hundreds of directories, and listing one costs several
// times what asking for its status does.
//
// A directory's status-change time moves whenever an entry is added to it, removed from
// it or renamed in it, and unlike the modification time no copy or sync tool can set it
// back: a directory whose change time is exactly the one recorded holds the recorded
// names. Listings are recorded only once the directory has been still for a few seconds,
// because file systems keep coarse times and a change right after our listing could
// otherwise leave the time as it was. The files in a directory still get their own stat:
// appending to a log does not touch its directory.
#pragma once

#include "core/movable_mutex.h"

#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace usagekit {

class DirectoryIndex {
  public:
    // How long a directory must have been still before its listing is kept.
    static constexpr int64_t kSettledNanoseconds = 5'000'000'000;

    // Names are views: a rescan reads thousands of them and builds none. Those of a loaded
    // listing lie in the index file's text, which the index keeps; those of a listing read
    // from a directory lie in its `names`.
    struct Entry {
        std::string_view name;
        bool isDirectory = false;
        bool operator==(const Entry&) const = default;
    };
    struct Listing {
        int64_t changed = 0;         // status-change time, nanoseconds since 1970
        std::vector<Entry> entries;  // in the order the directory gave them
        std::shared_ptr<const std::string> names;
        bool operator==(const Listing& other) const {
            return changed == other.changed && entries == other.entries;
        }
    };
    // Builds a listing whose names are copied, one after another, into its own text.
    class ListingBuilder {
      public:
        void add(std::string_view name, bool isDirectory);
        Listing done(int64_t changed) &&;

      private:
        std::string m_names;
        struct Span {
            size_t at, size;
            bool isDirectory;
        };
        std::vector<Span> m_spans;
    };

    static std::filesystem::path file();
    // The saved index; an empty one when missing, unreadable or of another version.
    static DirectoryIndex load();
    // The same, read by the first walk to need it: a scan starts its sources without
    // waiting for the read, and the first to ask reads it while the others wait.
    static DirectoryIndex loadWhenFirstUsed();
    // Writes what this scan kept when it differs from what was loaded; failures are ignored.
    void save(const std::filesystem::path& to = file()) const;

    // The recorded listing of `path` when the directory's change time is still `changed`,
    // kept for the next scan too; else nullptr. Valid, and unchanged, while the index lives.
    // Sources walk their trees at the same time, so reuse() and listed() may be called from
    // several threads at once.
    const Listing* reuse(const std::string& path, int64_t changed);
    // A listing this scan read; kept for the next scan when the directory has settled by
    // `now` (nanoseconds since 1970) and its change time is known (not 0), unless this scan
    // already kept one for `path`: that one may still be being walked.
    void listed(const std::string& path, Listing listing, int64_t now);

    // Whether the next scan would load something other than what this one loaded.
    bool changed() const;
    // How many listings the next scan would load.
    size_t keptCount() const { return m_keptCount; }

    std::string encode() const;
    // The index in `image`; nothing when it is damaged or not an index.
    static std::optional<DirectoryIndex> decode(std::string image);

  private:
    struct Slot {
        Listing listing;
        bool kept = false;  // reused or listed anew by this scan: saved for the next one
    };
    // What was loaded and what this scan listed, in one map: a rescan that reuses every
    // listing only flags them. Loaded paths lie in `m_image`, listed ones in `m_paths`.
    std::unordered_map<std::string_view, Slot> m_listings;
    std::shared_ptr<const std::string> m_image;
    std::deque<std::string> m_paths;  // a deque never moves what it holds
    void keep(Slot& slot);
    // Reads the index file here unless this index is loaded already; with m_mutex held.
    void loadLocked();
    MovableMutex m_mutex;  // guards the map and the counts while the walks run
    std::optional<std::filesystem::path> m_unread;  // the file loadWhenFirstUsed() defers
    size_t m_loadedCount = 0;
    size_t m_keptCount = 0;
    bool m_listedAnew = false;
};

}  // namespace usagekit
