#pragma once

#include <list>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "base/keldmbstring.h"
#include "base/keldmemory.h"
#include "base/namespaces.h"

namespace Qzc {

/// A hash table keyed by text that keeps its entries in the order in which their keys were first added, so
/// that what was read from a file is written back in the same order. Keys compare byte by byte.
///
/// Values may be of a type that can only be moved. What finds no memory raises the assertion and changes nothing; a
/// copy that was to be made is empty. Arguments may be keys and values of the table. Several threads may read a table
/// that nobody changes.
template <class V>
class QzHash {
public:
    /// What the iterators give.
    struct Entry {
        const KeldMBString first; ///< the key
        V second;                 ///< the value
    };

    QzHash() = default;
    QzHash(const QzHash& other) noexcept { *this = other; }
    QzHash(QzHash&& other) noexcept { Swap(other); }
    QzHash& operator=(const QzHash& other) noexcept {
        QzHash copy;
        if (this != &other && TryCopies<Entry>([&] { copy.m_entries = Entries(other.m_entries); })) {
            copy.IndexWhenLarge();
            Swap(copy);
        }
        return *this;
    }
    QzHash& operator=(QzHash&& other) noexcept {
        QzHash old(std::move(*this));
        Swap(other);
        return *this;
    }
    ~QzHash() = default;

    int GetCount() const { return static_cast<int>(m_entries.size()); }
    bool IsEmpty() const { return m_entries.empty(); }

    /// Copies the value into `value` and returns true; a missing key returns false and leaves `value` alone.
    bool Lookup(const KeldMBString& key, V& value) const {
        const V* const found = Find(key);
        return found != nullptr && TryCopies<V>([&] { value = *found; });
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
    void SetAt(const KeldMBString& key, const V& value) { Set(key, value); }
    void SetAt(const KeldMBString& key, V&& value) { Set(key, std::move(value)); }
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
    template <class Value>
    void Set(const KeldMBString& key, Value&& value) {
        const auto known = Locate(key);
        if (known != m_entries.end()) {
            TryMemory([&] { known->second = std::forward<Value>(value); });
            return;
        }
        // Made apart, so that a key or a value that found no memory never stands in the table.
        Entries added;
        if (!TryCopies<Entry>([&] { added.push_back(Entry{key, std::forward<Value>(value)}); }))
            return;
        const auto entry = added.begin();
        if (m_index != nullptr && !TryMemory([&] { m_index->emplace(entry->first.View(), entry); }))
            return;
        m_entries.splice(m_entries.end(), added); // the entry stays where it is
        if (m_index == nullptr)
            IndexWhenLarge();
    }
    /// Without memory for the index the entries go on to be searched.
    void IndexWhenLarge() {
        if (m_entries.size() <= SearchedCount)
            return;
        std::unique_ptr<Index> index;
        const auto build = [&] {
            index = std::make_unique<Index>();
            for (auto entry = m_entries.begin(); entry != m_entries.end(); ++entry)
                index->emplace(entry->first.View(), entry);
        };
        if (TryMemory(build))
            m_index = std::move(index);
    }
    void Swap(QzHash& other) noexcept {
        m_entries.swap(other.m_entries);
        m_index.swap(other.m_index);
    }

    Entries m_entries;
    std::unique_ptr<Index> m_index; // null while the entries are searched
};

} // namespace Qzc
