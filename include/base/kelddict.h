#pragma once

#include <map>
#include <utility>

#include "base/keldmemory.h"
#include "base/namespaces.h"

namespace KELD {

/// A dictionary ordered by key, over std::map. What finds no memory raises the assertion and changes nothing; a copy
/// that was to be made is empty. Arguments may be keys and values of the dictionary.
template <class K, class V>
class KeldDict {
    using Entries = std::map<K, V>;

public:
    KeldDict() = default;
    KeldDict(const KeldDict& other) noexcept { *this = other; }
    KeldDict(KeldDict&&) noexcept = default;
    KeldDict& operator=(const KeldDict& other) noexcept {
        Entries copy;
        if (this != &other && TryCopies<std::pair<K, V>>([&] { copy = other.m_entries; }))
            m_entries.swap(copy);
        return *this;
    }
    KeldDict& operator=(KeldDict&&) noexcept = default;
    ~KeldDict() = default;

    int GetCount() const { return static_cast<int>(m_entries.size()); }
    bool IsEmpty() const { return m_entries.empty(); }

    /// Copies the value into `value` and returns true; a missing key returns false and leaves `value` alone.
    bool Lookup(const K& key, V& value) const {
        const auto entry = m_entries.find(key);
        if (entry == m_entries.end())
            return false;
        return TryCopies<V>([&] { value = entry->second; });
    }
    /// The value, an empty one when the key is missing. Reading adds nothing to the table; SetAt writes.
    const V& operator[](const K& key) const {
        static const V s_none{};
        const auto entry = m_entries.find(key);
        return entry != m_entries.end() ? entry->second : s_none;
    }
    void SetAt(const K& key, const V& value) { Set(key, value); } ///< adds the key, or replaces its value
    void SetAt(const K& key, V&& value) { Set(key, std::move(value)); }
    bool RemoveKey(const K& key) { return m_entries.erase(key) != 0; } ///< whether it was there
    void RemoveAll() { m_entries.clear(); }

    // Entries are pairs of key (`first`) and value (`second`), in the order of the keys.
    auto begin() const { return m_entries.begin(); }
    auto end() const { return m_entries.end(); }

private:
    template <class Value>
    void Set(const K& key, Value&& value) {
        const auto known = m_entries.find(key);
        if (known != m_entries.end()) {
            TryMemory([&] { known->second = std::forward<Value>(value); });
            return;
        }
        // Made apart, so that a key or a value that found no memory never stands in the table.
        Entries added;
        if (TryCopies<std::pair<K, V>>([&] { added.emplace(key, std::forward<Value>(value)); }))
            m_entries.insert(added.extract(added.begin()));
    }

    Entries m_entries;
};

} // namespace KELD
