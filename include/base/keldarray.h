#pragma once

#include <type_traits>
#include <utility>
#include <vector>

#include "base/keldassert.h"
#include "base/keldmemory.h"
#include "base/keldthreadobject.h"

namespace KELD {

/// A growable array with int indices over std::vector. An index out of range raises the assertion; reading
/// then gives an empty element that nothing keeps, writing does nothing. So does what finds no memory: it raises the
/// assertion and changes nothing, and a copy that was to be made is empty. Arguments may be elements of the array.
template <class T>
class KeldArray {
    static_assert(!std::is_same_v<T, bool>, "std::vector<bool> has no elements to refer to; use unsigned char");

public:
    KeldArray() = default;
    KeldArray(const KeldArray& other) noexcept { *this = other; }
    KeldArray(KeldArray&&) noexcept = default;
    KeldArray& operator=(const KeldArray& other) noexcept {
        std::vector<T> copy;
        if (this != &other && TryCopies<T>([&] { copy = other.m_items; }))
            m_items = std::move(copy);
        return *this;
    }
    KeldArray& operator=(KeldArray&&) noexcept = default;
    ~KeldArray() = default;

    int GetSize() const { return static_cast<int>(m_items.size()); }
    bool IsEmpty() const { return m_items.empty(); }

    /// New elements are value-initialised. A negative size raises the assertion and changes nothing.
    void SetSize(int size) {
        if (KELDASSERT(size >= 0))
            TryMemory([&] { m_items.resize(static_cast<std::size_t>(size)); });
    }
    /// A hint: room that cannot be had is not made.
    void Reserve(int size) {
        if (size > 0)
            TryMemory([&] { m_items.reserve(static_cast<std::size_t>(size)); });
    }

    int Add(const T& item) {
        return Append([&] { m_items.push_back(item); });
    } ///< the new element's index, or -1
    int Add(T&& item) {
        return Append([&] { m_items.push_back(std::move(item)); });
    }
    const T& GetAt(int index) const { return (*this)[index]; }    ///< out of range: assertion, then an empty element
    void SetAt(int index, const T& item) { Assign(index, item); } ///< out of range: assertion, then nothing
    void SetAt(int index, T&& item) { Assign(index, std::move(item)); }
    /// Out of range: assertion, then an empty element that nothing keeps.
    T& operator[](int index) {
        if (KELDASSERT(IsIndex(index)))
            return m_items[static_cast<std::size_t>(index)];
        return NoElement<T>();
    }
    const T& operator[](int index) const { return const_cast<KeldArray&>(*this)[index]; }

    void InsertAt(int index, const T& item) { ///< the index may be the size, which appends
        const int size = GetSize();
        if (!Insert(index, [&] { return T(item); }) && GetSize() > size)
            RemoveAt(index); // it found no memory for what it holds
    }
    void InsertAt(int index, T&& item) {
        Insert(index, [&]() -> T&& { return std::move(item); });
    }
    void RemoveAt(int index, int count = 1) { ///< the range must lie in the array
        if (KELDASSERT(index >= 0 && count >= 0 && index <= GetSize() && count <= GetSize() - index))
            m_items.erase(m_items.begin() + index, m_items.begin() + index + count);
    }
    void RemoveAll() { m_items.clear(); }

    T* GetData() { return m_items.data(); } ///< GetSize() elements in a row; valid until the next change
    const T* GetData() const { return m_items.data(); }
    auto begin() { return m_items.begin(); }
    auto end() { return m_items.end(); }
    auto begin() const { return m_items.begin(); }
    auto end() const { return m_items.end(); }

    friend bool operator==(const KeldArray& a, const KeldArray& b) { return a.m_items == b.m_items; }
    friend bool operator!=(const KeldArray& a, const KeldArray& b) { return a.m_items != b.m_items; }

private:
    bool IsIndex(int index) const { return index >= 0 && index < GetSize(); }

    template <class Push>
    int Append(Push push) {
        const int size = GetSize();
        if (TryCopies<T>(push))
            return size;
        if (GetSize() > size) // an element that found no memory for what it holds
            m_items.pop_back();
        return -1;
    }
    template <class Make>
    bool Insert(int index, Make make) {
        return KELDASSERT(index >= 0 && index <= GetSize()) &&
               TryCopies<T>([&] { m_items.insert(m_items.begin() + index, make()); });
    }
    template <class Item>
    void Assign(int index, Item&& item) {
        if (KELDASSERT(IsIndex(index)))
            TryMemory([&] { m_items[static_cast<std::size_t>(index)] = std::forward<Item>(item); });
    }

    std::vector<T> m_items;
};

} // namespace KELD
