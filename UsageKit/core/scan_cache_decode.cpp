// Reading "usage-scan.json". A heavy user's cache holds thousands of entries and every
// rescan reads all of it, so it is walked once with simdjson's On-Demand parser and decoded
// straight into entries, with the same strict rules as every other state file: a key's
// first occurrence counts, and one entry or record that does not decode fails the whole
// cache (which is then rebuilt by parsing the logs again).
#include "core/scan_cache.h"

#include "core/json_coding.h"

namespace usagekit {

namespace od = simdjson::ondemand;

namespace {

// Reads `value` into `into` unless an earlier occurrence of its key already did.
template <class T, class Read>
bool first(std::optional<T>& into, od::value value, Read read) {
    if (into) return true;
    into = read(value);
    return into.has_value();
}

}  // namespace

std::optional<ScanCache::Entry> ScanCache::Entry::decode(od::value json) {
    std::optional<int64_t> size;
    std::optional<double> modified;
    std::optional<std::vector<UsageRecord>> records;
    const bool decoded =
        OnDemandJSON::forEachField(json, [&](std::string_view key, od::value value) {
            if (key == "size") return first(size, value, Decode::OnDemand::integer);
            if (key == "modified") return first(modified, value, Decode::OnDemand::number);
            if (key != "records" || records) return true;
            od::array array;
            if (value.get_array().get(array)) return false;
            records.emplace();
            for (auto element : array) {
                od::value item;
                if (std::move(element).get(item)) return false;
                auto record = UsageRecord::decode(item);
                if (!record) return false;
                records->push_back(std::move(*record));
            }
            return true;
        });
    if (!decoded || !size || !modified || !records) return std::nullopt;
    return Entry{*size, *modified, std::move(*records)};
}

std::optional<ScanCache> ScanCache::decode(const simdjson::padded_string& text) {
    od::parser parser;
    od::document document;
    od::value root;
    if (parser.iterate(text).get(document) || document.get_value().get(root)) return std::nullopt;
    ScanCache cache;
    std::optional<int64_t> version;
    bool sawFiles = false;
    const bool decoded =
        OnDemandJSON::forEachField(root, [&](std::string_view key, od::value value) {
            if (key == "version") return first(version, value, Decode::OnDemand::integer);
            if (key != "files" || sawFiles) return true;
            sawFiles = true;
            return OnDemandJSON::forEachField(value, [&](std::string_view key, od::value item) {
                std::string stored;
                std::string_view path = key;
                if (key.starts_with('\0')) {
                    auto bytes = pathOfStored(key);
                    if (!bytes) return false;
                    stored = std::move(*bytes);
                    path = stored;
                }
                if (cache.files.contains(path)) return true;  // a repeated path: the first counts
                auto entry = Entry::decode(item);
                if (!entry) return false;
                cache.files.emplace(path, std::move(*entry));
                return true;
            });
        });
    // Text after the object makes the file as unreadable as a torn one.
    if (!decoded || !version || !sawFiles || !OnDemandJSON::endedAtRoot(document))
        return std::nullopt;
    cache.version = *version;
    return cache;
}

}  // namespace usagekit
