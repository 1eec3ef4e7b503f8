#pragma once

#include <map>
#include <utility>

#include "base/namespaces.h"

namespace KELD {

/// A dictionary ordered by key, over std::map.
template <class K, class V>
class KeldDict {
public:
    int GetCount() const { return static_cast<int>(m_entries.size()); }
    bool IsEmpty() const { return m_entries.empty(); }

    /// Copies the value into `value` and returns true; a missing key returns false and leaves `value` alone.
    bool Lookup(const K& key, V& value) const {
        const auto entry = m_entries.find(key);
        if (entry == m_entries.end())
            return false;
        value = entry->second;
        return true;
    }
    /// The value, an empty one when the key is missing. Reading adds nothing to the table; SetAt writes.
    const V& operator[](const K& key) const {
        static const V s_none{};
        const auto entry = m_entries.find(key);
        return entry != m_entries.end() ? entry->second : s_none;
    }
    void SetAt(const K& key, V value) { m_entries.insert_or_assign(key, std::move(value)); }
    bool RemoveKey(const K& key) { return m_entries.erase(key) != 0; } ///< whether it was there
    void RemoveAll() { m_entries.clear(); }

    // Entries are pairs of key (`first`) and value (`second`), in the order of the keys.
    auto begin() const { return m_entries.begin(); }
    auto end() const { return m_entries.end(); }

private:
    std::map<K, V> m_entries;
};

} // namespace KELD
