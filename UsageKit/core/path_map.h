// A map from file paths to values for state a rescan loads whole: thousands of paths, all
// looked up once. The items lie in one vector in the order they were added, and an open
// addressing table of their hashes finds them, so loading allocates nothing per item.
//
// A path added with `emplaceKept` stays a view into text the map holds on to (`holdText`),
// such as the image it was loaded from; any other path is copied into the map's own store.
// Pointers to values and iterators are valid until the next item is added or erased.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace usagekit {

template <class T>
class PathMap {
  public:
    using value_type = std::pair<std::string_view, T>;
    using iterator = typename std::vector<value_type>::iterator;
    using const_iterator = typename std::vector<value_type>::const_iterator;

    PathMap() = default;
    // Moved, never copied: a copy's keys would still point into this map's store.
    PathMap(PathMap&&) noexcept = default;
    PathMap& operator=(PathMap&&) noexcept = default;
    PathMap(const PathMap&) = delete;
    PathMap& operator=(const PathMap&) = delete;

    size_t size() const { return m_items.size(); }
    bool empty() const { return m_items.empty(); }
    iterator begin() { return m_items.begin(); }
    iterator end() { return m_items.end(); }
    const_iterator begin() const { return m_items.begin(); }
    const_iterator end() const { return m_items.end(); }

    void reserve(size_t count) {
        m_items.reserve(count);
        if (count * 2 > m_slots.size()) rehash(count * 2);
    }

    T* find(std::string_view path) {
        const size_t at = locate(path, hash(path));
        return m_slots.empty() || m_slots[at].item == kEmpty ? nullptr
                                                             : &m_items[m_slots[at].item].second;
    }
    const T* find(std::string_view path) const { return const_cast<PathMap*>(this)->find(path); }
    bool contains(std::string_view path) const { return find(path) != nullptr; }
    T& at(std::string_view path) {
        if (T* value = find(path)) return *value;
        throw std::out_of_range("no such path: " + std::string(path));
    }
    const T& at(std::string_view path) const { return const_cast<PathMap*>(this)->at(path); }

    // Adds `value` under a copy of `path` unless the path is there; either way the value
    // under it, and whether it was added.
    std::pair<T*, bool> emplace(std::string_view path, T value) {
        return add(path, std::move(value), true);
    }
    // The same for a path lying in text held with holdText().
    std::pair<T*, bool> emplaceKept(std::string_view path, T value) {
        return add(path, std::move(value), false);
    }
    void holdText(std::shared_ptr<const void> text) { m_held.push_back(std::move(text)); }

    T& operator[](std::string_view path) { return *emplace(path, T()).first; }

    // The same paths with equal values, whatever the order they were added in.
    bool operator==(const PathMap& other) const {
        if (size() != other.size()) return false;
        for (const auto& [path, value] : m_items) {
            const T* theirs = other.find(path);
            if (!theirs || !(*theirs == value)) return false;
        }
        return true;
    }

    // Erases the items `erase(item)` holds true for, keeping the others in order; how many.
    template <class Predicate>
    size_t eraseIf(Predicate erase) {
        const size_t before = m_items.size();
        std::erase_if(m_items, [&](const value_type& item) { return erase(item); });
        if (m_items.size() != before) rehash(m_slots.size());
        return before - m_items.size();
    }

  private:
    static constexpr uint32_t kEmpty = UINT32_MAX;
    struct Slot {
        uint32_t hash = 0;  // the low bits of the path's hash, to skip most comparisons
        uint32_t item = kEmpty;
    };

    static size_t hash(std::string_view path) { return std::hash<std::string_view>()(path); }

    // The slot holding `path`, or the empty slot where it would go; the table must not be
    // empty unless the map is.
    size_t locate(std::string_view path, size_t pathHash) const {
        if (m_slots.empty()) return 0;
        const size_t mask = m_slots.size() - 1;
        for (size_t at = pathHash & mask;; at = (at + 1) & mask) {
            const Slot& slot = m_slots[at];
            if (slot.item == kEmpty) return at;
            if (slot.hash == static_cast<uint32_t>(pathHash) && m_items[slot.item].first == path)
                return at;
        }
    }

    std::pair<T*, bool> add(std::string_view path, T value, bool copyPath) {
        if ((m_items.size() + 1) * 2 > m_slots.size()) rehash((m_items.size() + 1) * 2);
        const size_t pathHash = hash(path);
        Slot& slot = m_slots[locate(path, pathHash)];
        if (slot.item != kEmpty) return {&m_items[slot.item].second, false};
        if (copyPath) path = m_owned.emplace_back(path);
        slot = {static_cast<uint32_t>(pathHash), static_cast<uint32_t>(m_items.size())};
        m_items.emplace_back(path, std::move(value));
        return {&m_items.back().second, true};
    }

    // A table of at least `count` slots (a power of two) filled from the items.
    void rehash(size_t count) {
        size_t slotCount = 16;
        while (slotCount < count)
            slotCount *= 2;
        m_slots.assign(slotCount, Slot());
        for (uint32_t i = 0; i < m_items.size(); ++i) {
            const size_t pathHash = hash(m_items[i].first);
            m_slots[locate(m_items[i].first, pathHash)] = {static_cast<uint32_t>(pathHash), i};
        }
    }

    std::vector<value_type> m_items;
    std::vector<Slot> m_slots;
    std::deque<std::string> m_owned;  // a deque never moves what it holds
    std::vector<std::shared_ptr<const void>> m_held;
};

}  // namespace usagekit
