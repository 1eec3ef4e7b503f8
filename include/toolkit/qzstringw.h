#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/keldarray.h"
#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// Wide text in units of the platform's wchar_t.
///
/// Lengths, indices and counts are in units; where wchar_t has 2 bytes a surrogate pair is two units that
/// nothing keeps together. The text carries its length and may hold zero units; every pointer argument is a
/// zero-terminated text. A null pointer raises the assertion and then counts as an empty text, except in
/// Replace, which does nothing. A text never grows past MaxLength units: an operation that would do so raises
/// the assertion and changes nothing, and likewise one that finds no memory; a text that was to be made is then empty.
/// Every argument may be the text itself or a part of it. An object is used by one thread at a time.
class MOTOOLKIT_API QzStringW {
    template <class Unit>
    using IfUnit = std::enable_if_t<std::is_same_v<Unit, wchar_t>>;
    /// Other integers: a literal 0 would be a pointer as well as a unit or an index.
    template <class Integer>
    using IfInteger = std::enable_if_t<std::is_integral_v<Integer> && !std::is_same_v<Integer, wchar_t>>;
    template <class First, class Second>
    using IfIntegers = std::enable_if_t<std::is_integral_v<First> && std::is_integral_v<Second>>;

public:
    /// As many units as a KeldMBString has room for.
    static constexpr int MaxLength = KeldMBString::MaxLength / static_cast<int>(sizeof(wchar_t));

    QzStringW() = default;
    QzStringW(const KeldMBString& text);                           ///< FromString with the text's own charset
    QzStringW(std::wstring text);                                  ///< all of it
    QzStringW(std::wstring_view text) : m_text(CopyOf(text)) {}    ///< all of it
    QzStringW(const wchar_t* text) : m_text(CopyOf(Text(text))) {} ///< up to the terminator
    QzStringW(const wchar_t* text, int length); ///< exactly `length` units; a negative length counts as 0
    QzStringW(const QzStringW& other) noexcept : m_text(CopyOf(other.m_text)) {}
    QzStringW(QzStringW&& other) noexcept = default;
    QzStringW& operator=(const QzStringW& other) noexcept;
    QzStringW& operator=(QzStringW&& other) noexcept = default;
    ~QzStringW() = default;

    const wchar_t* Cstr() const { return m_text.c_str(); }
    const wchar_t* GetData() const { return m_text.c_str(); }  ///< the same as Cstr
    operator const wchar_t*() const { return m_text.c_str(); } ///< the same as Cstr
    std::wstring_view View() const { return m_text; }          ///< valid until the next change
    const wchar_t* begin() const { return m_text.data(); }
    const wchar_t* end() const { return m_text.data() + m_text.size(); }

    /// Out of range: assertion, then 0 (the reference form: a unit that nothing keeps); SetAt does nothing.
    wchar_t GetAt(int index) const;
    void SetAt(int index, wchar_t unit);
    template <class Index, class = std::enable_if_t<std::is_integral_v<Index>>>
    wchar_t operator[](Index index) const {
        return GetAt(ToInt(index));
    }
    template <class Index, class = std::enable_if_t<std::is_integral_v<Index>>>
    wchar_t& operator[](Index index) {
        return Unit(ToInt(index));
    }

    int GetLength() const { return static_cast<int>(m_text.size()); }
    bool IsEmpty() const { return m_text.empty(); }
    void Empty() { m_text.clear(); }
    /// A hint: a negative capacity, and one that cannot be had, changes nothing.
    void SetCapacity(int capacity);
    int GetCapacity() const;

    QzStringW& MakeUpper(); ///< ASCII letters only, whatever the locale
    QzStringW& MakeLower();
    QzStringW& MakeInverse(); ///< reverses the order of the units

    QzStringW Left(int count) const;  ///< a negative count gives an empty text, one past the length all of it
    QzStringW Right(int count) const; ///< a negative count gives all of the text, the length or more an empty one
    QzStringW Mid(int index) const;   ///< a negative index counts as 0
    QzStringW Mid(int index, int count) const; ///< fewer at the end; a negative count gives an empty text

    /// Erases `count` units at `index`, fewer at the end; a negative index counts as 0, and a count of 0 or
    /// less erases nothing. The new length.
    int Delete(int index, int count = 1);
    /// Inserts at an index that is cut to the text; a count of 0 or less inserts nothing. The new length.
    int Insert(int index, const wchar_t* text);
    int Insert(int index, wchar_t unit, int count = 1);
    template <class Integer, class = IfInteger<Integer>>
    int Insert(int index, Integer unit, int count = 1) {
        return Insert(index, static_cast<wchar_t>(unit), count);
    }
    /// Erases every `unit` but the one that follows an erased unit at once: `a` from `aab` leaves `ab`. The
    /// number of units erased.
    int Remove(wchar_t unit);

    QzStringW& TrimLeft(); ///< strips tab, carriage return, line feed and blank
    QzStringW& TrimRight();
    QzStringW& TrimLeft(wchar_t unit);
    QzStringW& TrimRight(wchar_t unit);
    template <class Integer, class = IfInteger<Integer>>
    QzStringW& TrimLeft(Integer unit) {
        return TrimLeft(static_cast<wchar_t>(unit));
    }
    template <class Integer, class = IfInteger<Integer>>
    QzStringW& TrimRight(Integer unit) {
        return TrimRight(static_cast<wchar_t>(unit));
    }
    QzStringW& TrimLeft(const wchar_t* set); ///< strips any unit of the set
    QzStringW& TrimRight(const wchar_t* set);

    int Compare(const wchar_t* text) const;       ///< by unit value: negative, 0 or positive
    int CompareNoCase(const wchar_t* text) const; ///< the same with both sides in lower case (ASCII letters)

    /// The first match at or after `start` (a negative start counts as 0), -1 when there is none. An empty
    /// text is found where the search starts.
    int Find(wchar_t unit, int start = 0) const;
    int Find(const wchar_t* text, int start = 0) const;
    template <class Integer, class = IfInteger<Integer>>
    int Find(Integer unit, int start = 0) const {
        return Find(static_cast<wchar_t>(unit), start);
    }
    int ReverseFind(wchar_t unit) const;               ///< the last match, -1 when there is none
    int FindOneOf(const wchar_t* set) const;           ///< the first unit that is in the set, -1 when there is none
    QzStringW SpanIncluding(const wchar_t* set) const; ///< the leading run of units that are in the set
    QzStringW SpanExcluding(const wchar_t* set) const; ///< the leading run of units that are not

    int Replace(wchar_t from, wchar_t to); ///< the number of units replaced; 0 when both are the same
    template <class From, class To, class = IfIntegers<From, To>>
    int Replace(From from, To to) {
        return Replace(static_cast<wchar_t>(from), static_cast<wchar_t>(to));
    }
    /// Replaces every `from`, searching on behind each replacement; an empty `from` matches nothing. The
    /// number of replacements.
    int Replace(const wchar_t* from, const wchar_t* to);

    /// Appends to `pieces` the runs of units between those of the set `delimiters`; no run is empty. The
    /// number of pieces appended.
    int Split(KeldArray<QzStringW>& pieces, const QzStringW& delimiters) const;

    /// The text in a charset (1 is the current one), whose number the result carries. Empty when the charset
    /// is unknown or lacks one of the characters. No byte-order mark is written. In the charset of wide text itself
    /// (132, and 253 where wchar_t has 4 bytes, 251 where it has 2) nothing is converted: the result is the bytes up to
    /// the first zero byte, of ASCII text only the first one.
    KeldMBString ToString(KELDCharset::Charset charset) const;

    /// Takes text of a charset (1 is the current one) up to its first zero character; whatever charset number
    /// `text` carries does not matter. Empty when it cannot be converted. A byte-order mark stays in the
    /// text. Without memory the text stays as it was.
    void FromString(const KeldMBString& text, KELDCharset::Charset charset);

    QzStringW& operator+=(const QzStringW& text) { return Append(text.m_text); }
    QzStringW& operator+=(const wchar_t* text) { return Append(Text(text)); }
    template <class Unit, class = IfUnit<Unit>>
    QzStringW& operator+=(Unit unit) {
        return Append(std::wstring_view(&unit, 1));
    }
    friend QzStringW operator+(const QzStringW& a, const QzStringW& b) { return Join(a.m_text, b.m_text); }
    friend QzStringW operator+(const QzStringW& a, const wchar_t* b) { return Join(a.m_text, Text(b)); }
    friend QzStringW operator+(const wchar_t* a, const QzStringW& b) { return Join(Text(a), b.m_text); }
    template <class Unit, class = IfUnit<Unit>>
    friend QzStringW operator+(const QzStringW& a, Unit b) {
        return Join(a.m_text, std::wstring_view(&b, 1));
    }

    // By unit value. Two objects are compared whole, also behind a zero unit.
    friend bool operator==(const QzStringW& a, const QzStringW& b) { return a.m_text == b.m_text; }
    friend bool operator!=(const QzStringW& a, const QzStringW& b) { return a.m_text != b.m_text; }
    friend bool operator<(const QzStringW& a, const QzStringW& b) { return a.m_text < b.m_text; }
    friend bool operator>(const QzStringW& a, const QzStringW& b) { return a.m_text > b.m_text; }
    friend bool operator<=(const QzStringW& a, const QzStringW& b) { return a.m_text <= b.m_text; }
    friend bool operator>=(const QzStringW& a, const QzStringW& b) { return a.m_text >= b.m_text; }
    friend bool operator==(const QzStringW& a, const wchar_t* b) { return a.m_text == Text(b); }
    friend bool operator==(const wchar_t* a, const QzStringW& b) { return Text(a) == b.m_text; }
    friend bool operator!=(const QzStringW& a, const wchar_t* b) { return a.m_text != Text(b); }
    friend bool operator!=(const wchar_t* a, const QzStringW& b) { return Text(a) != b.m_text; }
    friend bool operator<(const QzStringW& a, const wchar_t* b) { return a.m_text < Text(b); }
    friend bool operator<(const wchar_t* a, const QzStringW& b) { return Text(a) < b.m_text; }
    friend bool operator>(const QzStringW& a, const wchar_t* b) { return a.m_text > Text(b); }
    friend bool operator>(const wchar_t* a, const QzStringW& b) { return Text(a) > b.m_text; }
    friend bool operator<=(const QzStringW& a, const wchar_t* b) { return a.m_text <= Text(b); }
    friend bool operator<=(const wchar_t* a, const QzStringW& b) { return Text(a) <= b.m_text; }
    friend bool operator>=(const QzStringW& a, const wchar_t* b) { return a.m_text >= Text(b); }
    friend bool operator>=(const wchar_t* a, const QzStringW& b) { return Text(a) >= b.m_text; }

private:
    static std::wstring_view Text(const wchar_t* text);
    static std::wstring CopyOf(std::wstring_view text) noexcept;
    static QzStringW Join(std::wstring_view a, std::wstring_view b);
    /// -1 when an int does not hold it.
    template <class Index>
    static int ToInt(Index index) {
        if constexpr (std::is_signed_v<Index>)
            return static_cast<std::int64_t>(index) == static_cast<int>(index) ? static_cast<int>(index) : -1;
        else
            return static_cast<std::uint64_t>(index) <= 0x7FFFFFFF ? static_cast<int>(index) : -1;
    }
    wchar_t& Unit(int index);
    QzStringW& Append(std::wstring_view text);
    bool IsIndex(int index) const;
    bool HasRoomFor(std::size_t added) const;

    std::wstring m_text;
};

} // namespace Qzc

/// Equal texts have equal hashes.
template <>
struct std::hash<Qzc::QzStringW> {
    std::size_t operator()(const Qzc::QzStringW& text) const noexcept {
        return std::hash<std::wstring_view>()(text.View());
    }
};
