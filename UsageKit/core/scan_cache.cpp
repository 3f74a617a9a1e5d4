#include "core/scan_cache.h"

#include "core/json_coding.h"
#include "core/paths.h"
#include "core/spread_thread.h"
#include "core/store.h"
#include "core/text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <future>
#include <mutex>
#include <system_error>

namespace usagekit {

namespace {

// The background save in flight, if any. Joined before the next load or save, and at exit.
std::mutex writerMutex;
std::optional<SpreadThread> writer;

}  // namespace

std::filesystem::path ScanCache::file() {
    return TallyPaths::state("usage-scan.json");
}

struct ScanCache::Loading {
    std::future<ScanCache> files;
    std::optional<SpreadThread> reader;  // joined before `files` goes
};

ScanCache ScanCache::readSaved(const std::filesystem::path& json,
                               const std::filesystem::path& image) {
    // Taken before the JSON is read: should the file be replaced in between, the image
    // written for what was read is tied to a file that is gone, and is never used.
    const std::optional<FileIdentity> saved = identity(json);
    if (!saved) return ScanCache();
    if (auto bytes = Store::readFile(image))
        if (auto mirrored = fromImage(std::move(*bytes), *saved)) {
            mirrored->changed = false;
            return std::move(*mirrored);
        }
    const std::optional<std::string> bytes = Store::readFile(json);
    if (!bytes) return ScanCache();
    auto loaded = decode(simdjson::padded_string(*bytes));
    if (!loaded || loaded->version != kVersion) return ScanCache();
    loaded->changed = false;
    loaded->m_imageMissingFor = saved;
    return std::move(*loaded);
}

bool ScanCache::writeSaved(const ScanCache& cache, const std::filesystem::path& json,
                           const std::filesystem::path& image) {
    std::optional<FileIdentity> mirrored = cache.m_imageMissingFor;
    if (cache.changed) {
        mirrored.reset();
        try {
            struct stat written {};
            Store::saveData(jsonData(cache, true), json, &written);
            // The rename moves the change time, so the identity is taken again; it is ours
            // only while the file there is the one just written.
            const std::optional<FileIdentity> placed = identity(json);
            if (placed && written.st_ino != 0 &&
                placed->device == static_cast<uint64_t>(written.st_dev) &&
                placed->inode == static_cast<uint64_t>(written.st_ino))
                mirrored = placed;
        } catch (const std::exception&) {
            return false;  // the old file and the image that mirrors it stay as they were
        }
    }
    if (!mirrored) return true;
    try {
        if (auto bytes = cache.image(*mirrored)) {
            Store::saveData(*bytes, image);
        } else {
            std::error_code ignored;
            std::filesystem::remove(image, ignored);
        }
    } catch (const std::exception&) {
        // Without an image the next scan reads the JSON, as it would without this file.
    }
    return true;
}

ScanCache ScanCache::load() {
    waitForSave();
    ScanCache cache = readSaved(file(), imageFile());
    cache.directories = DirectoryIndex::load();
    return cache;
}

ScanCache ScanCache::loadInBackground() {
    waitForSave();
    ScanCache cache;
    try {
        auto read =
            std::make_shared<std::packaged_task<ScanCache()>>([json = file(), image = imageFile()] {
                ScanCache loaded = readSaved(json, image);
                loaded.makeSlots();
                return loaded;
            });
        cache.m_loading = std::make_shared<Loading>();
        cache.m_loading->files = read->get_future();
        cache.m_loading->reader.emplace([read] { (*read)(); });
    } catch (const std::system_error&) {
        return load();  // no thread to be had: read it here and now
    }
    cache.directories = DirectoryIndex::loadWhenFirstUsed();
    return cache;
}

void ScanCache::settle() {
    std::lock_guard lock(m_mutex);
    settleLocked();
}

void ScanCache::settleLocked() {
    if (!m_loading) return;
    const std::shared_ptr<Loading> loading = std::move(m_loading);
    ScanCache loaded;
    try {
        loaded = loading->files.get();
    } catch (const std::exception&) {
        // Out of memory while reading it: the scan goes on without a cache, as it does
        // without a file.
    }
    files = std::move(loaded.files);
    version = loaded.version;
    changed = loaded.changed;
    m_imageMissingFor = loaded.m_imageMissingFor;
    m_packedImage = std::move(loaded.m_packedImage);
    m_slots = std::move(loaded.m_slots);
}

void ScanCache::save() {
    waitForSave();
    settle();
    if (writeSaved(*this, file(), imageFile())) {
        changed = false;
        m_imageMissingFor.reset();
    }
    directories.save();
}

void ScanCache::saveInBackground(ScanCache cache) {
    cache.settle();
    // Even with nothing to write the cache goes to the writer: freeing its thousands of
    // records is a millisecond the scan need not wait for.
    // Everything the writer needs from elsewhere is resolved here, on the caller's thread.
    std::filesystem::path target = file(), imageTarget = imageFile(),
                          indexTarget = DirectoryIndex::file();
    std::lock_guard lock(writerMutex);
    writer.reset();
    static const bool joinsAtExit = std::atexit(waitForSave) == 0;
    (void)joinsAtExit;
    // Shared, so that the cache is still here to write should no thread be had.
    auto owned = std::make_shared<const ScanCache>(std::move(cache));
    auto write = [target = std::move(target), imageTarget = std::move(imageTarget),
                  indexTarget = std::move(indexTarget)](const ScanCache& saving) {
        (void)writeSaved(saving, target, imageTarget);
        saving.directories.save(indexTarget);
    };
    try {
        writer.emplace([owned, write] { write(*owned); });
        owned.reset();  // the writer's is then, nearly always, the last
    } catch (const std::system_error&) {
        write(*owned);
    }
}

void ScanCache::waitForSave() {
    std::lock_guard lock(writerMutex);
    writer.reset();
}

ScanCache::Stamp ScanCache::stamp(const std::filesystem::path& path) {
    return stamp(AT_FDCWD, path.c_str());
}

ScanCache::Stamp ScanCache::stamp(int directory, const char* path) {
    struct stat info {};
    if (::fstatat(directory, path, &info, 0) != 0) return {};
    return {
        static_cast<int64_t>(info.st_size),
        static_cast<double>(info.st_mtim.tv_sec) + static_cast<double>(info.st_mtim.tv_nsec) / 1e9};
}

std::optional<ScanCache::Entry> ScanCache::hit(const std::string& path, const Stamp& current,
                                               Times match) {
    std::lock_guard lock(m_mutex);
    settleLocked();
    Entry* const found = files.find(path);
    if (!found) return std::nullopt;
    Entry& entry = *found;
    entry.visited = true;
    const bool sameTime = match == Times::exactly
                              ? entry.modified == current.modified
                              : std::fabs(entry.modified - current.modified) < 0.5;
    if (entry.size != current.size || !sameTime) return std::nullopt;
    return entry;
}

void ScanCache::store(const std::string& path, const Stamp& current,
                      std::vector<UsageRecord> records) {
    std::lock_guard lock(m_mutex);
    settleLocked();
    files[path] = Entry{current.size, current.modified, std::move(records), true};
    changed = true;
}

std::vector<UsageRecord> ScanCache::records(const std::filesystem::path& path, const Parse& parse) {
    const Stamp current = stamp(path);
    if (const auto entry = hit(path.string(), current)) return entry->allRecords();
    std::vector<UsageRecord> parsed = parse(path);
    store(path.string(), current, parsed);
    return parsed;
}

std::vector<UsageRecord> ScanCache::recordsOfText(const std::filesystem::path& path,
                                                  const ParseText& parse) {
    return records(path, [&](const std::filesystem::path& file) {
        std::string text = Store::readFile(file).value_or(std::string());
        return parse(text, file.stem().string());
    });
}

std::shared_ptr<const void> ScanCache::packedImage() {
    std::lock_guard lock(m_mutex);
    settleLocked();
    return m_packedImage;
}

void ScanCache::makeSlots() noexcept {
    if (!m_packedImage) return;
    try {
        m_slots.resize(m_packedImage->records.size());
    } catch (const std::bad_alloc&) {
        // the scan makes its own
    }
}

std::vector<UsageRecord> ScanCache::takeSlots() {
    std::lock_guard lock(m_mutex);
    settleLocked();
    return std::move(m_slots);
}

void ScanCache::pruneUnvisited() {
    std::lock_guard lock(m_mutex);
    settleLocked();
    if (files.eraseIf([](const auto& item) { return !item.second.visited; }) > 0) changed = true;
}

void ScanCache::Entry::appendRecordsTo(std::vector<UsageRecord>& out) const {
    out.insert(out.end(), records.begin(), records.end());
    packed.appendTo(out);
}

std::vector<UsageRecord> ScanCache::Entry::allRecords() const {
    if (packed.count() == 0) return records;
    std::vector<UsageRecord> all;
    all.reserve(recordCount());
    appendRecordsTo(all);
    return all;
}

void ScanCache::Entry::encode(JsonWriter& w) const {
    w.beginObject();
    w.key("modified");
    w.value(modified);
    w.key("records");
    if (packed.count() == 0)
        JSONCoding<std::vector<UsageRecord>>::encode(w, records);
    else
        JSONCoding<std::vector<UsageRecord>>::encode(w, allRecords());
    w.key("size");
    w.value(size);
    w.endObject();
}

std::string ScanCache::storedPath(std::string_view path) {
    return '\0' + Text::percentEncode(path, Text::kURLPathExtra);
}

std::optional<std::string> ScanCache::pathOfStored(std::string_view key) {
    if (!key.starts_with('\0')) return std::string(key);
    return Text::percentDecodeBytes(key.substr(1));
}

void ScanCache::encode(JsonWriter& w) const {
    const auto sorted = sortedByKey(files);
    w.beginObject();
    w.key("files");
    w.beginObject();
    for (const auto* item : sorted) {
        if (simdjson::validate_utf8(item->first.data(), item->first.size()))
            w.key(item->first);
        else
            w.key(storedPath(item->first));
        item->second.encode(w);
    }
    w.endObject();
    w.key("version");
    w.value(version);
    w.endObject();
}

}  // namespace usagekit
