#include "core/directory_index.h"

#include "core/json_coding.h"
#include "core/paths.h"
#include "core/store.h"

namespace usagekit {

namespace od = simdjson::ondemand;

std::filesystem::path DirectoryIndex::file() {
    return TallyPaths::state("usage-scan-directories.json");
}

DirectoryIndex DirectoryIndex::load() {
    auto text = Store::readFile(file());
    if (!text) return DirectoryIndex();
    return decode(*text).value_or(DirectoryIndex());
}

void DirectoryIndex::save(const std::filesystem::path& to) const {
    if (!changed()) return;
    try {
        Store::saveData(encode(), to);
    } catch (const std::exception&) {
        // Losing the index costs the next scan a listing of every directory, nothing more.
    }
}

const DirectoryIndex::Listing* DirectoryIndex::reuse(const std::string& path, int64_t changed) {
    // A settled directory walked twice in one scan (for two name suffixes) is listed once.
    if (auto kept = m_kept.find(path); kept != m_kept.end() && kept->second.changed == changed)
        return &kept->second;
    auto it = m_loaded.find(path);
    if (it == m_loaded.end() || it->second.changed != changed) return nullptr;
    Listing& kept = m_kept[path] = std::move(it->second);
    m_loaded.erase(it);
    return &kept;
}

void DirectoryIndex::listed(const std::string& path, Listing listing, int64_t now) {
    if (listing.changed <= 0 || listing.changed >= now - kSettledNanoseconds) return;
    // The index is JSON, which holds only UTF-8: a name in another encoding would come back
    // altered and name a file that is not there.
    auto isText = [](std::string_view name) {
        return simdjson::validate_utf8(name.data(), name.size());
    };
    if (!isText(path)) return;
    for (const Entry& entry : listing.entries)
        if (!isText(entry.name)) return;
    m_kept[path] = std::move(listing);
    m_listedAnew = true;
}

bool DirectoryIndex::changed() const {
    return m_listedAnew || m_kept.size() != m_loadedCount;
}

std::string DirectoryIndex::encode() const {
    const auto sorted = sortedByKey(m_kept);
    JsonWriter w(true);
    w.beginObject();
    w.key("directories");
    w.beginObject();
    for (const auto* item : sorted) {
        w.key(item->first);
        w.beginObject();
        w.key("changed");
        w.value(item->second.changed);
        w.key("entries");
        w.beginArray();
        // A trailing slash marks a directory; no name can hold one.
        for (const Entry& entry : item->second.entries)
            w.value(entry.isDirectory ? entry.name + "/" : entry.name);
        w.endArray();
        w.endObject();
    }
    w.endObject();
    w.key("version");
    w.value(kVersion);
    w.endObject();
    return w.take();
}

namespace {

bool decodeListing(od::value json, DirectoryIndex::Listing& listing) {
    bool sawChanged = false, sawEntries = false;
    const bool decoded =
        OnDemandJSON::forEachField(json, [&](std::string_view key, od::value value) {
            if (key == "changed" && !sawChanged) {
                sawChanged = true;
                return value.get_int64().get(listing.changed) == simdjson::SUCCESS;
            }
            if (key != "entries" || sawEntries) return true;
            sawEntries = true;
            od::array array;
            if (value.get_array().get(array)) return false;
            for (auto element : array) {
                std::string_view name;
                if (std::move(element).get_string().get(name)) return false;
                const bool isDirectory = name.ends_with('/');
                if (isDirectory) name.remove_suffix(1);
                if (name.empty() || name.find('/') != std::string_view::npos) return false;
                listing.entries.push_back({std::string(name), isDirectory});
            }
            return true;
        });
    return decoded && sawChanged && sawEntries;
}

}  // namespace

std::optional<DirectoryIndex> DirectoryIndex::decode(std::string_view text) {
    const simdjson::padded_string padded(text);
    od::parser parser;
    od::document document;
    od::value root;
    if (parser.iterate(padded).get(document) || document.get_value().get(root)) return std::nullopt;
    DirectoryIndex index;
    bool sawDirectories = false, sawVersion = false;
    const bool decoded =
        OnDemandJSON::forEachField(root, [&](std::string_view key, od::value value) {
            if (key == "version" && !sawVersion) {
                sawVersion = true;
                int64_t version = 0;
                return value.get_int64().get(version) == simdjson::SUCCESS && version == kVersion;
            }
            if (key != "directories" || sawDirectories) return true;
            sawDirectories = true;
            return OnDemandJSON::forEachField(value, [&](std::string_view path, od::value item) {
                Listing listing;
                if (!decodeListing(item, listing)) return false;
                index.m_loaded.try_emplace(std::string(path), std::move(listing));
                return true;
            });
        });
    if (!decoded || !sawDirectories || !sawVersion || !OnDemandJSON::endedAtRoot(document))
        return std::nullopt;
    index.m_loadedCount = index.m_loaded.size();
    return index;
}

}  // namespace usagekit
