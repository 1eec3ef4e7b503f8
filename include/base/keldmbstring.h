#pragma once

#include <cstdarg>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "base/keldassert.h"
#include "base/keldcharset.h"
#include "base/keldmemory.h"
#include "base/mobaseexport.h"

// Formats are those of the C++ library (%zu, %lld), also on systems whose own are others.
#if defined(__clang__)
#define KELD_PRINTF(textIndex, firstIndex) __attribute__((format(printf, textIndex, firstIndex)))
#elif defined(__GNUC__)
#define KELD_PRINTF(textIndex, firstIndex) __attribute__((format(gnu_printf, textIndex, firstIndex)))
#else
/// Has the compiler check what a function formats as printf does.
#define KELD_PRINTF(textIndex, firstIndex)
#endif

namespace KELD {

/// An 8-bit string with a charset number beside it: the text type of the whole interface.
///
/// It carries its length and may hold zero bytes. Indices and counts are in bytes. The charset says what the
/// bytes mean (default: the current charset); no operation converts them, QzTextCodec does.
///
/// Null pointers count as empty text. An index out of range raises the assertion and gives a defined result.
/// A text never grows past 2^31-1 bytes: an operation that would do so raises the assertion and changes
/// nothing, and likewise one that finds no memory; a text that was to be made is then empty. Every argument may be the
/// text itself or a part of it. An object is used by one thread at a time; several threads may read one that nobody
/// changes.
class MOBASE_API KeldMBString {
    template <class Char>
    using IfChar = std::enable_if_t<std::is_same_v<Char, char>>;

public:
    static constexpr int MaxLength = 0x7FFFFFFF; ///< in bytes

    /// A text that is only looked at, wherever it lies.
    class Argument {
    public:
        Argument(const char* text) : m_text(Text(text)) {}          ///< up to the terminator; null is empty
        Argument(const KeldMBString& text) : m_text(text.m_text) {} ///< all of it
        Argument(std::string_view text) : m_text(text) {}           ///< all of it
        std::string_view View() const { return m_text; }            ///< the text that it looks at

    private:
        std::string_view m_text;
    };

    KeldMBString() = default;
    KeldMBString(const char* text) : m_text(CopyOf(Text(text))) {} ///< up to the terminator
    KeldMBString(const char* text, int length);                    ///< exactly `length` bytes; a negative length is 0
    template <class Char, class = IfChar<Char>>
    explicit KeldMBString(Char c, int count = 1) { ///< of a char alone, not of a number
        Fill(c, count);
    }
    explicit KeldMBString(std::string text);                               ///< all of it
    explicit KeldMBString(std::string_view text) : m_text(CopyOf(text)) {} ///< all of it
    KeldMBString(const KeldMBString& other) noexcept : m_text(CopyOf(other.m_text)), m_charset(other.m_charset) {}
    KeldMBString(KeldMBString&& other) noexcept = default;
    KeldMBString& operator=(const KeldMBString& other) noexcept {
        if (Assign(other.m_text))
            m_charset = other.m_charset;
        return *this;
    }
    KeldMBString& operator=(KeldMBString&& other) noexcept = default;
    ~KeldMBString() = default;

    /// As from a view, for a part of a text whose bytes may be read up to `readable`: faster where the part is short.
    static KeldMBString FromPart(std::string_view part, const char* readable) {
        return KeldMBString(part, readable - part.data());
    }

    const char* Cstr() const { return m_text.c_str(); }
    int GetLength() const { return static_cast<int>(m_text.size()); }
    bool IsEmpty() const { return m_text.empty(); }
    void Empty() { m_text.clear(); }                     ///< keeps the charset
    std::string_view View() const { return m_text; }     ///< valid until the next change
    operator std::string_view() const { return m_text; } ///< the same as View
    const char* begin() const { return m_text.data(); }
    const char* end() const { return m_text.data() + m_text.size(); }

    KELDCharset::Charset GetCharset() const { return m_charset; }          ///< what the bytes mean
    void SetCharset(KELDCharset::Charset charset) { m_charset = charset; } ///< the number only

    char GetAt(int index) const;   ///< out of range: assertion, then 0
    void SetAt(int index, char c); ///< out of range: assertion, then nothing
    char operator[](int index) const { return GetAt(index); }

    KeldMBString Left(int count) const;  ///< a negative count gives an empty text, a large one all of it
    KeldMBString Right(int count) const; ///< likewise
    KeldMBString Mid(int index) const;   ///< a negative index counts as 0
    KeldMBString Mid(int index, int count) const;

    /// The first match at or after `start`, -1 when there is none. An empty `text` is found where the search
    /// starts.
    int Find(char c, int start = 0) const;
    int Find(Argument text, int start = 0) const;
    int ReverseFind(char c) const;        ///< the last match, -1 when there is none
    int FindOneOf(const char* set) const; ///< the first byte that is in the set, -1 when there is none

    int Replace(char from, char to); ///< the number of bytes replaced
    /// Replaces every `from`, searching on behind each replacement; an empty `from` matches nothing. The
    /// number of replacements.
    int Replace(Argument from, Argument to);
    /// Replaces `count` bytes at `index` (both cut to what is there) by `text`.
    void Replace(int index, int count, std::string_view text);
    int Insert(int index, Argument text); ///< the index is cut to the text; the new length
    int Delete(int index, int count = 1); ///< fewer at the end; the new length
    KeldMBString& TrimLeft();             ///< strips tab, line feed, carriage return and blank
    KeldMBString& TrimRight();
    KeldMBString& TrimLeft(char c);
    KeldMBString& TrimRight(char c);

    /// ASCII letters only, whatever the locale. The second byte of a two-byte character is left alone.
    KeldMBString& MakeUpper();
    KeldMBString& MakeLower();

    int Compare(Argument other) const;       ///< by unsigned byte value: negative, 0 or positive
    int CompareNoCase(Argument other) const; ///< ASCII letters compare without regard to case

    /// Replaces the text by what printf would print. A text that cannot be formatted gives an empty one.
    void Format(const char* format, ...) KELD_PRINTF(2, 3);
    void FormatV(const char* format, std::va_list arguments); ///< the same with the arguments as a list

    KeldMBString& Append(const char* text, int length); ///< exactly `length` bytes; a negative length is 0
    /// Appends a text wherever it lies.
    KeldMBString& Append(std::string_view text) {
        if (text.size() <= m_text.capacity() - m_text.size() && text.size() <= MaxLength - m_text.size())
            m_text.append(text);
        else
            AppendGrowing(text);
        return *this;
    }
    KeldMBString& operator+=(const KeldMBString& text) { return Append(text.m_text); }
    KeldMBString& operator+=(const char* text) { return Append(Text(text)); }
    template <class Char, class = IfChar<Char>>
    KeldMBString& operator+=(Char c) {
        return Append(std::string_view(&c, 1));
    }
    void Reserve(int capacity); ///< a hint: room that cannot be had is not made

    // The charset number is that of the operand which is a KeldMBString, of the left one where both are.
    friend KeldMBString operator+(const KeldMBString& a, const KeldMBString& b) { return Join(a, b, a); }
    friend KeldMBString operator+(const KeldMBString& a, const char* b) { return Join(a, Text(b), a); }
    friend KeldMBString operator+(const char* a, const KeldMBString& b) { return Join(Text(a), b, b); }
    template <class Char, class = IfChar<Char>>
    friend KeldMBString operator+(const KeldMBString& a, Char b) {
        return Join(a, std::string_view(&b, 1), a);
    }
    friend KeldMBString operator+(KeldMBString&& a, const KeldMBString& b) { return Extend(a, b); }
    friend KeldMBString operator+(KeldMBString&& a, const char* b) { return Extend(a, Text(b)); }
    template <class Char, class = IfChar<Char>>
    friend KeldMBString operator+(KeldMBString&& a, Char b) {
        return Extend(a, std::string_view(&b, 1));
    }

    // Equality and order look at the bytes, not at the charset number.
    friend bool operator==(const KeldMBString& a, const KeldMBString& b) { return a.m_text == b.m_text; }
    friend bool operator!=(const KeldMBString& a, const KeldMBString& b) { return a.m_text != b.m_text; }
    friend bool operator<(const KeldMBString& a, const KeldMBString& b) { return a.m_text < b.m_text; }
    friend bool operator>(const KeldMBString& a, const KeldMBString& b) { return a.m_text > b.m_text; }
    friend bool operator<=(const KeldMBString& a, const KeldMBString& b) { return a.m_text <= b.m_text; }
    friend bool operator>=(const KeldMBString& a, const KeldMBString& b) { return a.m_text >= b.m_text; }
    friend bool operator==(const KeldMBString& a, const char* b) { return a.m_text == Text(b); }
    friend bool operator!=(const KeldMBString& a, const char* b) { return a.m_text != Text(b); }
    friend bool operator==(const char* a, const KeldMBString& b) { return b == a; }
    friend bool operator!=(const char* a, const KeldMBString& b) { return b != a; }

private:
    static std::string_view Text(const char* text) { return text != nullptr ? text : std::string_view(); }
    static std::string CopyOf(std::string_view text) noexcept {
        if (text.size() <= MaxLength) {
            try {
                return std::string(text);
            } catch (const std::bad_alloc&) {
                ReportMemoryFailure();
                return std::string();
            }
        }
        return TooLong();
    }
    KeldMBString(std::string_view part, std::ptrdiff_t readable)
        : m_text(part.size() <= Short && readable >= std::ptrdiff_t{Short} ? ShortCopyOf(part) : CopyOf(part)) {}
    // A fixed number of bytes is copied without a call; as few take no memory, whatever the C++ library.
    static constexpr int Short = sizeof(std::string) >= 24 ? 15 : 10;
    static std::string ShortCopyOf(std::string_view part) noexcept {
        std::string copy(part.data(), Short);
        copy.resize(part.size());
        return copy;
    }
    static std::string TooLong();
    /// Both in one text; empty when there is no memory for it.
    static KeldMBString Join(std::string_view a, std::string_view b, const KeldMBString& charset);
    static KeldMBString Extend(KeldMBString& a, std::string_view b);
    bool Assign(std::string_view text) noexcept;
    void AppendGrowing(std::string_view text);
    void Fill(char c, int count);
    /// Whether `added` more bytes fit; raises the assertion when they do not.
    bool HasRoomFor(std::size_t added) const;
    template <class Map>
    void MapLetters(Map map);

    std::string m_text;
    KELDCharset::Charset m_charset = KELDCharset::Current;
};

} // namespace KELD

/// Equal texts have equal hashes, whatever their charset numbers.
template <>
struct std::hash<KELD::KeldMBString> {
    std::size_t operator()(const KELD::KeldMBString& text) const noexcept {
        return std::hash<std::string_view>()(text.View());
    }
};
