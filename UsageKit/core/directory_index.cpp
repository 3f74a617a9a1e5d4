#include "core/directory_index.h"

#include "core/binary_image.h"
#include "core/paths.h"
#include "core/store.h"

namespace usagekit {

std::filesystem::path DirectoryIndex::file() {
    return TallyPaths::state("usage-scan-directories.bin");
}

DirectoryIndex DirectoryIndex::load() {
    auto text = Store::readFile(file());
    if (!text) return DirectoryIndex();
    return decode(std::move(*text)).value_or(DirectoryIndex());
}

DirectoryIndex DirectoryIndex::loadWhenFirstUsed() {
    DirectoryIndex index;
    index.m_unread = file();
    return index;
}

void DirectoryIndex::loadLocked() {
    if (!m_unread) return;
    auto text = Store::readFile(*m_unread);
    m_unread.reset();
    if (!text) return;
    if (auto loaded = decode(std::move(*text))) {
        m_listings = std::move(loaded->m_listings);
        m_image = std::move(loaded->m_image);
        m_loadedCount = loaded->m_loadedCount;
    }
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
    std::lock_guard lock(m_mutex);
    loadLocked();
    auto it = m_listings.find(path);
    if (it == m_listings.end() || it->second.listing.changed != changed) return nullptr;
    Slot& slot = it->second;
    keep(slot);
    return &slot.listing;
}

void DirectoryIndex::listed(const std::string& path, Listing listing, int64_t now) {
    if (listing.changed <= 0 || listing.changed >= now - kSettledNanoseconds) return;
    std::lock_guard lock(m_mutex);
    loadLocked();
    auto it = m_listings.find(path);
    if (it == m_listings.end()) it = m_listings.try_emplace(m_paths.emplace_back(path)).first;
    Slot& slot = it->second;
    if (slot.kept) return;
    slot.listing = std::move(listing);
    keep(slot);
    m_listedAnew = true;
}

void DirectoryIndex::keep(Slot& slot) {
    if (slot.kept) return;
    slot.kept = true;
    ++m_keptCount;
}

bool DirectoryIndex::changed() const {
    // An index no walk asked for was never read: nothing kept of nothing loaded, unchanged.
    return m_listedAnew || m_keptCount != m_loadedCount;
}

namespace {

constexpr std::string_view kMagic = "TLYDIRS1";
// The fewest bytes a listing and an entry take in an image.
constexpr size_t kListingSize = 4 + 8 + 4;
constexpr size_t kEntrySize = 4 + 1;

}  // namespace

std::string DirectoryIndex::encode() const {
    BinaryImage::Writer w;
    w.u32(static_cast<uint32_t>(m_keptCount));
    for (const auto& [path, slot] : m_listings) {
        if (!slot.kept) continue;
        w.text(path);
        w.i64(slot.listing.changed);
        w.u32(static_cast<uint32_t>(slot.listing.entries.size()));
        for (const Entry& entry : slot.listing.entries) {
            w.text(entry.name);
            w.u8(entry.isDirectory ? 1 : 0);
        }
    }
    return w.sealed(kMagic);
}

void DirectoryIndex::ListingBuilder::add(std::string_view name, bool isDirectory) {
    m_spans.push_back({m_names.size(), name.size(), isDirectory});
    m_names += name;
}

DirectoryIndex::Listing DirectoryIndex::ListingBuilder::done(int64_t changed) && {
    Listing listing;
    listing.changed = changed;
    listing.names = std::make_shared<const std::string>(std::move(m_names));
    listing.entries.reserve(m_spans.size());
    for (const Span& span : m_spans)
        listing.entries.push_back(
            {std::string_view(*listing.names).substr(span.at, span.size), span.isDirectory});
    return listing;
}

std::optional<DirectoryIndex> DirectoryIndex::decode(std::string image) {
    DirectoryIndex index;
    index.m_image = std::make_shared<const std::string>(std::move(image));
    const auto payload = BinaryImage::unsealed(*index.m_image, kMagic);
    if (!payload) return std::nullopt;
    BinaryImage::Reader r(*payload);
    const uint32_t listings = r.count(kListingSize);
    index.m_listings.reserve(listings);
    for (uint32_t i = 0; i < listings; ++i) {
        const std::string_view path = r.text();
        Listing listing;
        listing.changed = r.i64();
        const uint32_t entries = r.count(kEntrySize);
        listing.entries.reserve(entries);
        for (uint32_t k = 0; k < entries; ++k) {
            const std::string_view name = r.text();
            const uint8_t isDirectory = r.u8();
            // Listings never hold hidden names; any other name here would take the walk
            // somewhere else than the entry (out of the tree, for "..").
            if (name.empty() || name[0] == '.' || name.find('/') != std::string_view::npos ||
                name.find('\0') != std::string_view::npos || isDirectory > 1)
                return std::nullopt;
            listing.entries.push_back({name, isDirectory == 1});
        }
        if (r.failed()) return std::nullopt;
        index.m_listings.try_emplace(path, Slot{std::move(listing)});
    }
    if (r.failed() || !r.atEnd()) return std::nullopt;
    index.m_loadedCount = index.m_listings.size();
    return index;
}

}  // namespace usagekit
