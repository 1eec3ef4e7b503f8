#pragma once

#include <algorithm>
#include <deque>
#include <memory>
#include <type_traits>
#include <utility>

#include "base/keldassert.h"
#include "base/keldmemory.h"
#include "base/keldthreadobject.h"

namespace KELD {

/// A list with two open ends, over std::deque. Asking an empty list for an element raises the assertion; the
/// answer is then an empty element that nothing keeps. What finds no memory raises the assertion and changes nothing;
/// a copy that was to be made is empty. Arguments may be elements of the list.
template <class T>
class KeldList {
    using Items = std::deque<T>;

public:
    KeldList() = default;
    KeldList(const KeldList& other) noexcept { *this = other; }
    KeldList(KeldList&&) noexcept = default;
    KeldList& operator=(const KeldList& other) noexcept {
        std::unique_ptr<Items> copy;
        const auto copyItems = [&] {
            if (!other.IsEmpty())
                copy = std::make_unique<Items>(*other.m_items);
        };
        if (this != &other && TryCopies<T>(copyItems))
            m_items = std::move(copy);
        return *this;
    }
    KeldList& operator=(KeldList&&) noexcept = default;
    ~KeldList() = default;

    int GetCount() const { return m_items != nullptr ? static_cast<int>(m_items->size()) : 0; }
    bool IsEmpty() const { return m_items == nullptr || m_items->empty(); }

    /// In front of all others; AddTail behind them.
    void AddHead(const T& item) {
        if (!Add([&] { m_items->push_front(item); }))
            m_items->pop_front();
    }
    void AddHead(T&& item) {
        TryMemory([&] { Room().push_front(std::move(item)); });
    }
    void AddTail(const T& item) {
        if (!Add([&] { m_items->push_back(item); }))
            m_items->pop_back();
    }
    void AddTail(T&& item) {
        TryMemory([&] { Room().push_back(std::move(item)); });
    }

    /// The first; GetTail the last. Empty list: assertion, then an empty element that nothing keeps.
    T& GetHead() { return KELDASSERT(!IsEmpty()) ? m_items->front() : NoElement<T>(); }
    T& GetTail() { return KELDASSERT(!IsEmpty()) ? m_items->back() : NoElement<T>(); }
    const T& GetHead() const { return const_cast<KeldList&>(*this).GetHead(); }
    const T& GetTail() const { return const_cast<KeldList&>(*this).GetTail(); }

    T RemoveHead() { ///< the element
        T item = std::move(GetHead());
        if (!IsEmpty())
            m_items->pop_front();
        return item;
    }
    T RemoveTail() {
        T item = std::move(GetTail());
        if (!IsEmpty())
            m_items->pop_back();
        return item;
    }
    bool Remove(const T& item) { ///< the first that equals it; false when there is none
        const auto found = std::find(begin(), end(), item);
        if (found == end())
            return false;
        m_items->erase(found);
        return true;
    }
    void RemoveAll() {
        if (m_items != nullptr)
            m_items->clear();
    }

    // From head to tail. Adding and removing end the validity of what these gave.
    auto begin() { return m_items != nullptr ? m_items->begin() : typename Items::iterator(); }
    auto end() { return m_items != nullptr ? m_items->end() : typename Items::iterator(); }
    auto begin() const {
        return m_items != nullptr ? std::as_const(*m_items).begin() : typename Items::const_iterator();
    }
    auto end() const { return m_items != nullptr ? std::as_const(*m_items).end() : typename Items::const_iterator(); }

private:
    Items& Room() {
        if (m_items == nullptr)
            m_items = std::make_unique<Items>();
        return *m_items;
    }
    /// False when an element was added that found no memory for what it holds.
    template <class Push>
    bool Add(Push push) {
        const int count = GetCount();
        const bool done = TryCopies<T>([&] {
            Room();
            push();
        });
        return done || GetCount() == count;
    }

    std::unique_ptr<Items> m_items; // made by the first element: even an empty deque takes memory
};

} // namespace KELD
