#pragma once

#include <algorithm>
#include <deque>
#include <utility>

#include "base/keldassert.h"

namespace KELD {

/// A list with two open ends, over std::deque. Asking an empty list for an element raises the assertion; the
/// answer is then an empty element that nothing keeps.
template <class T>
class KeldList {
public:
    int GetCount() const { return static_cast<int>(m_items.size()); }
    bool IsEmpty() const { return m_items.empty(); }

    void AddHead(T item) { m_items.push_front(std::move(item)); }
    void AddTail(T item) { m_items.push_back(std::move(item)); }

    T& GetHead() { return KELDASSERT(!IsEmpty()) ? m_items.front() : None(); }
    T& GetTail() { return KELDASSERT(!IsEmpty()) ? m_items.back() : None(); }
    const T& GetHead() const { return const_cast<KeldList&>(*this).GetHead(); }
    const T& GetTail() const { return const_cast<KeldList&>(*this).GetTail(); }

    T RemoveHead() { ///< the element
        T item = std::move(GetHead());
        if (!IsEmpty())
            m_items.pop_front();
        return item;
    }
    T RemoveTail() {
        T item = std::move(GetTail());
        if (!IsEmpty())
            m_items.pop_back();
        return item;
    }
    bool Remove(const T& item) { ///< the first that equals it; false when there is none
        const auto found = std::find(m_items.begin(), m_items.end(), item);
        if (found == m_items.end())
            return false;
        m_items.erase(found);
        return true;
    }
    void RemoveAll() { m_items.clear(); }

    // From head to tail. Adding and removing end the validity of what these gave.
    auto begin() { return m_items.begin(); }
    auto end() { return m_items.end(); }
    auto begin() const { return m_items.begin(); }
    auto end() const { return m_items.end(); }

private:
    static T& None() {
        static thread_local T s_none;
        return s_none = T();
    }

    std::deque<T> m_items;
};

} // namespace KELD
