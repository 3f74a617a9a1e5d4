#include "core/directory_index.h"

#include "core/json.h"
#include "core/paths.h"
#include "core/store.h"

#include <algorithm>

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
    // A directory walked twice in one scan (for two name suffixes) is listed once.
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
    m_kept[path] = std::move(listing);
    m_listedAnew = true;
}

bool DirectoryIndex::changed() const {
    return m_listedAnew || m_kept.size() != m_loadedCount;
}

std::string DirectoryIndex::encode() const {
    std::vector<const std::pair<const std::string, Listing>*> sorted;
    for (const auto& item : m_kept)
        sorted.push_back(&item);
    std::sort(sorted.begin(), sorted.end(),
              [](const auto* a, const auto* b) { return a->first < b->first; });
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
    od::object object;
    if (json.get_object().get(object)) return false;
    bool sawChanged = false, sawEntries = false;
    for (auto item : object) {
        od::field field;
        std::string_view key;
        if (std::move(item).get(field) || !OnDemandJSON::key(field, key)) return false;
        if (key == "changed" && !sawChanged) {
            sawChanged = true;
            if (field.value().get_int64().get(listing.changed)) return false;
        } else if (key == "entries" && !sawEntries) {
            sawEntries = true;
            od::array array;
            if (field.value().get_array().get(array)) return false;
            for (auto element : array) {
                std::string_view name;
                if (std::move(element).get_string().get(name)) return false;
                const bool isDirectory = name.ends_with('/');
                if (isDirectory) name.remove_suffix(1);
                if (name.empty() || name.find('/') != std::string_view::npos) return false;
                listing.entries.push_back({std::string(name), isDirectory});
            }
        }
    }
    return sawChanged && sawEntries;
}

}  // namespace

std::optional<DirectoryIndex> DirectoryIndex::decode(std::string_view text) {
    const simdjson::padded_string padded(text);
    od::parser parser;
    od::document document;
    od::object root;
    if (parser.iterate(padded).get(document) || document.get_object().get(root))
        return std::nullopt;
    DirectoryIndex index;
    bool sawDirectories = false, sawVersion = false;
    for (auto item : root) {
        od::field field;
        std::string_view key;
        if (std::move(item).get(field) || !OnDemandJSON::key(field, key)) return std::nullopt;
        if (key == "version" && !sawVersion) {
            sawVersion = true;
            int64_t version = 0;
            if (field.value().get_int64().get(version) || version != kVersion) return std::nullopt;
        } else if (key == "directories" && !sawDirectories) {
            sawDirectories = true;
            od::object directories;
            if (field.value().get_object().get(directories)) return std::nullopt;
            for (auto member : directories) {
                od::field directory;
                std::string_view path;
                if (std::move(member).get(directory) || !OnDemandJSON::key(directory, path))
                    return std::nullopt;
                Listing listing;
                if (!decodeListing(directory.value(), listing)) return std::nullopt;
                index.m_loaded.try_emplace(std::string(path), std::move(listing));
            }
        }
    }
    if (!sawDirectories || !sawVersion || !OnDemandJSON::endedAtRoot(document)) return std::nullopt;
    index.m_loadedCount = index.m_loaded.size();
    return index;
}

}  // namespace usagekit
