#pragma once

#include <list>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// A hash table keyed by text that keeps its entries in the order in which their keys were first added, so
/// that what was read from a file is written back in the same order. Keys compare byte by byte.
///
/// Values may be of a type that can only be moved. Several threads may read a table that nobody changes.
template <class V>
class QzHash {
public:
    struct Entry {
        const KeldMBString first; ///< the key
        V second;                 ///< the value
    };

    QzHash() = default;
    QzHash(const QzHash& other) : m_entries(other.m_entries) { IndexWhenLarge(); }
    QzHash(QzHash&& other) noexcept { Swap(other); }
    QzHash& operator=(QzHash other) noexcept {
        Swap(other);
        return *this;
    }
    ~QzHash() = default;

    int GetCount() const { return static_cast<int>(m_entries.size()); }
    bool IsEmpty() const { return m_entries.empty(); }

    /// Copies the value into `value` and returns true; a missing key returns false and leaves `value` alone.
    bool Lookup(const KeldMBString& key, V& value) const {
        const V* const found = Find(key);
        if (found != nullptr)
            value = *found;
        return found != nullptr;
    }
    /// The value in the table, null when the key is missing. Valid until the key is removed.
    const V* Find(const KeldMBString& key) const {
        const auto entry = Locate(key);
        return entry != m_entries.end() ? &entry->second : nullptr;
    }
    /// The value, an empty one when the key is missing. Reading adds nothing to the table; SetAt writes.
    const V& operator[](const KeldMBString& key) const {
        static const V s_none{};
        const V* const found = Find(key);
        return found != nullptr ? *found : s_none;
    }

    /// Adds the key at the end, or replaces its value where it stands.
    void SetAt(const KeldMBString& key, V value) {
        const auto known = Locate(key);
        if (known != m_entries.end()) {
            known->second = std::move(value);
            return;
        }
        const auto added = m_entries.insert(m_entries.end(), Entry{key, std::move(value)});
        if (m_index != nullptr)
            m_index->emplace(added->first.View(), added);
        else
            IndexWhenLarge();
    }
    bool RemoveKey(const KeldMBString& key) { ///< whether it was there
        const auto known = Locate(key);
        if (known == m_entries.end())
            return false;
        if (m_index != nullptr)
            m_index->erase(known->first.View());
        m_entries.erase(known);
        return true;
    }
    void RemoveAll() {
        m_index.reset();
        m_entries.clear();
    }

    // Entries in the order in which their keys were added.
    auto begin() { return m_entries.begin(); }
    auto end() { return m_entries.end(); }
    auto begin() const { return m_entries.begin(); }
    auto end() const { return m_entries.end(); }

    /// Whether both hold the same keys with equal values, in whatever order.
    friend bool operator==(const QzHash& a, const QzHash& b) {
        if (a.GetCount() != b.GetCount())
            return false;
        for (const Entry& entry : a) {
            const V* const other = b.Find(entry.first);
            if (other == nullptr || !(*other == entry.second))
                return false;
        }
        return true;
    }
    friend bool operator!=(const QzHash& a, const QzHash& b) { return !(a == b); }

private:
    using Entries = std::list<Entry>; // entries stay where they are, so the index can refer to their keys
    using Iterator = typename Entries::iterator;
    using Index = std::unordered_map<std::string_view, Iterator>;

    // Most tables of a configuration are small. Those are searched, which is as fast as an index of them and
    // spares its memory.
    static constexpr std::size_t SearchedCount = 8;

    Iterator Locate(const KeldMBString& key) const {
        auto& entries = const_cast<Entries&>(m_entries);
        if (m_index != nullptr) {
            const auto found = m_index->find(key.View());
            return found != m_index->end() ? found->second : entries.end();
        }
        auto entry = entries.begin();
        while (entry != entries.end() && entry->first != key)
            ++entry;
        return entry;
    }
    void IndexWhenLarge() {
        if (m_entries.size() <= SearchedCount)
            return;
        m_index = std::make_unique<Index>();
        for (auto entry = m_entries.begin(); entry != m_entries.end(); ++entry)
            m_index->emplace(entry->first.View(), entry);
    }
    void Swap(QzHash& other) noexcept {
        m_entries.swap(other.m_entries);
        m_index.swap(other.m_index);
    }

    Entries m_entries;
    std::unique_ptr<Index> m_index; // null while the entries are searched
};

} // namespace Qzc
