#pragma once

#include <string>
#include <string_view>

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
/// the assertion and changes nothing. An object is used by one thread at a time.
class MOTOOLKIT_API QzStringW {
public:
    /// As many units as a KeldMBString has room for.
    static constexpr int MaxLength = KeldMBString::MaxLength / static_cast<int>(sizeof(wchar_t));

    QzStringW() = default;
    QzStringW(const KeldMBString& text); ///< FromString with the text's own charset
    QzStringW(std::wstring text);
    QzStringW(const wchar_t* text);
    QzStringW(const wchar_t* text, int length); ///< exactly `length` units; a negative length counts as 0

    const wchar_t* Cstr() const { return m_text.c_str(); }
    const wchar_t* GetData() const { return m_text.c_str(); }
    operator const wchar_t*() const { return m_text.c_str(); }

    /// Out of range: assertion, then 0 (the reference form: a unit that nothing keeps); SetAt does nothing.
    wchar_t GetAt(int index) const;
    void SetAt(int index, wchar_t unit);
    wchar_t operator[](int index) const { return GetAt(index); }
    wchar_t& operator[](int index);

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
    /// Erases every `unit` but the one that follows an erased unit at once: `a` from `aab` leaves `ab`. The
    /// number of units erased.
    int Remove(wchar_t unit);

    QzStringW& TrimLeft(); ///< strips tab, carriage return, line feed and blank
    QzStringW& TrimRight();
    QzStringW& TrimLeft(wchar_t unit);
    QzStringW& TrimRight(wchar_t unit);
    QzStringW& TrimLeft(const wchar_t* set); ///< strips any unit of the set
    QzStringW& TrimRight(const wchar_t* set);

    int Compare(const wchar_t* text) const;       ///< by unit value: negative, 0 or positive
    int CompareNoCase(const wchar_t* text) const; ///< the same with both sides in lower case (ASCII letters)

    /// The first match at or after `start` (a negative start counts as 0), -1 when there is none. An empty
    /// text is found where the search starts.
    int Find(wchar_t unit, int start = 0) const;
    int Find(const wchar_t* text, int start = 0) const;
    int ReverseFind(wchar_t unit) const;               ///< the last match, -1 when there is none
    int FindOneOf(const wchar_t* set) const;           ///< the first unit that is in the set, -1 when there is none
    QzStringW SpanIncluding(const wchar_t* set) const; ///< the leading run of units that are in the set
    QzStringW SpanExcluding(const wchar_t* set) const; ///< the leading run of units that are not

    int Replace(wchar_t from, wchar_t to); ///< the number of units replaced; 0 when both are the same
    /// Replaces every `from`, searching on behind each replacement; an empty `from` matches nothing. The
    /// number of replacements.
    int Replace(const wchar_t* from, const wchar_t* to);

    /// Appends to `pieces` the runs of units between those of the set `delimiters`; no run is empty. The
    /// number of pieces appended.
    int Split(KeldArray<QzStringW>& pieces, const QzStringW& delimiters) const;

    /// The text in a charset (1 is the current one), whose number the result carries. Empty when the charset
    /// is unknown or lacks one of the characters. No byte-order mark is written.
    KeldMBString ToString(KELDCharset::Charset charset) const;

    /// Takes text of a charset (1 is the current one) up to its first zero character; whatever charset number
    /// `text` carries does not matter. Empty when it cannot be converted. A byte-order mark stays in the
    /// text.
    void FromString(const KeldMBString& text, KELDCharset::Charset charset);

    bool operator==(const wchar_t* text) const { return m_text == Text(text); }
    bool operator!=(const wchar_t* text) const { return m_text != Text(text); }
    // These two see what lies behind a zero unit.
    bool operator==(const QzStringW& other) const { return m_text == other.m_text; }
    bool operator!=(const QzStringW& other) const { return m_text != other.m_text; }
    friend bool operator==(const wchar_t* a, const QzStringW& b) { return b == a; }
    friend bool operator!=(const wchar_t* a, const QzStringW& b) { return b != a; }

private:
    static std::wstring_view Text(const wchar_t* text);
    bool IsIndex(int index) const;
    bool HasRoomFor(std::size_t added) const;

    std::wstring m_text;
};

} // namespace Qzc
