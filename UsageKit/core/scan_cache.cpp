#include "core/scan_cache.h"

#include "core/json_coding.h"
#include "core/paths.h"
#include "core/store.h"

#include <sys/stat.h>

#include <cmath>

namespace usagekit {

std::filesystem::path ScanCache::file() {
    return TallyPaths::state("usage-scan.json");
}

ScanCache ScanCache::load() {
    auto loaded = Store::load<ScanCache>(file());
    if (!loaded || loaded->version != kVersion) return ScanCache();
    loaded->changed = false;
    return std::move(*loaded);
}

void ScanCache::save() {
    if (changed && Store::saveQuietly(*this, file())) changed = false;
}

ScanCache::Stamp ScanCache::stamp(const std::filesystem::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return {};
    return {
        static_cast<int64_t>(info.st_size),
        static_cast<double>(info.st_mtim.tv_sec) + static_cast<double>(info.st_mtim.tv_nsec) / 1e9};
}

const ScanCache::Entry* ScanCache::hit(const std::string& path, const Stamp& current) const {
    auto it = files.find(path);
    if (it == files.end()) return nullptr;
    const Entry& entry = it->second;
    // The size must match exactly; the time only to within half a second, because some
    // file systems and copies keep coarser times than others.
    if (entry.size != current.size || !(std::fabs(entry.modified - current.modified) < 0.5))
        return nullptr;
    return &entry;
}

void ScanCache::store(const std::string& path, const Stamp& current,
                      std::vector<UsageRecord> records) {
    files[path] = Entry{current.size, current.modified, std::move(records)};
    changed = true;
}

std::vector<UsageRecord> ScanCache::records(const std::filesystem::path& path, const Parse& parse) {
    const Stamp current = stamp(path);
    visited.insert(path.string());
    if (const Entry* entry = hit(path.string(), current)) return entry->records;
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

void ScanCache::prune(const std::unordered_set<std::string>& keeping) {
    if (std::erase_if(files, [&](const auto& item) { return !keeping.contains(item.first); }) > 0)
        changed = true;
}

void ScanCache::Entry::encode(JsonWriter& w) const {
    w.beginObject();
    w.key("modified");
    w.value(modified);
    w.key("records");
    JSONCoding<std::vector<UsageRecord>>::encode(w, records);
    w.key("size");
    w.value(size);
    w.endObject();
}

std::optional<ScanCache::Entry> ScanCache::Entry::decode(const JSON& json) {
    auto size = Decode::integer(json["size"]);
    auto modified = Decode::number(json["modified"]);
    auto records = JSONCoding<std::vector<UsageRecord>>::decode(json["records"]);
    if (!size || !modified || !records) return std::nullopt;
    return Entry{*size, *modified, std::move(*records)};
}

void ScanCache::encode(JsonWriter& w) const {
    w.beginObject();
    w.key("files");
    w.beginObject();
    for (const auto& [path, entry] : files) {
        w.key(path);
        entry.encode(w);
    }
    w.endObject();
    w.key("version");
    w.value(version);
    w.endObject();
}

std::optional<ScanCache> ScanCache::decode(const JSON& json) {
    auto version = Decode::integer(json["version"]);
    JSON files = json["files"];
    if (!version || !files.isObject()) return std::nullopt;
    ScanCache cache;
    cache.version = *version;
    for (const auto& [path, value] : files.members()) {
        auto entry = Entry::decode(value);
        if (!entry) return std::nullopt;
        cache.files.emplace(std::string(path), std::move(*entry));
    }
    return cache;
}

}  // namespace usagekit
