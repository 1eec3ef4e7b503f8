#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

#include "base/keldassert.h"
#include "base/keldcharset.h"
#include "base/mobaseexport.h"

#if defined(__GNUC__)
#define KELD_PRINTF(textIndex, firstIndex) __attribute__((format(printf, textIndex, firstIndex)))
#else
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
/// nothing. An object is used by one thread at a time; several threads may read one that nobody changes.
class MOBASE_API KeldMBString {
public:
    static constexpr int MaxLength = 0x7FFFFFFF;

    KeldMBString() = default;
    KeldMBString(const char* text);             ///< up to the terminator
    KeldMBString(const char* text, int length); ///< exactly `length` bytes; a negative length counts as 0
    explicit KeldMBString(char c, int count = 1);
    explicit KeldMBString(std::string text);
    explicit KeldMBString(std::string_view text)
        : m_text(KELDASSERT(text.size() <= MaxLength) ? text : std::string_view()) {}

    const char* Cstr() const { return m_text.c_str(); }
    int GetLength() const { return static_cast<int>(m_text.size()); }
    bool IsEmpty() const { return m_text.empty(); }
    void Empty() { m_text.clear(); }                 ///< keeps the charset
    std::string_view View() const { return m_text; } ///< valid until the next change

    KELDCharset::Charset GetCharset() const { return m_charset; }
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
    int Find(const KeldMBString& text, int start = 0) const;
    int ReverseFind(char c) const; ///< the last match, -1 when there is none
    int FindOneOf(const char* set) const;

    int Replace(char from, char to); ///< the number of bytes replaced
    /// Replaces every `from`, searching on behind each replacement; an empty `from` matches nothing. The
    /// number of replacements.
    int Replace(const KeldMBString& from, const KeldMBString& to);
    /// Replaces `count` bytes at `index` (both cut to what is there) by `text`.
    void Replace(int index, int count, std::string_view text);
    int Insert(int index, const KeldMBString& text); ///< the index is cut to the text; the new length
    int Delete(int index, int count = 1);            ///< fewer at the end; the new length
    KeldMBString& TrimLeft();                        ///< strips tab, line feed, carriage return and blank
    KeldMBString& TrimRight();
    KeldMBString& TrimLeft(char c);
    KeldMBString& TrimRight(char c);

    /// ASCII letters only, whatever the locale. The second byte of a two-byte character is left alone.
    KeldMBString& MakeUpper();
    KeldMBString& MakeLower();

    int Compare(const KeldMBString& other) const;       ///< by unsigned byte value: negative, 0 or positive
    int CompareNoCase(const KeldMBString& other) const; ///< ASCII letters compare without regard to case

    /// Replaces the text by what printf would print. A text that cannot be formatted gives an empty one.
    void Format(const char* format, ...) KELD_PRINTF(2, 3);
    void FormatV(const char* format, std::va_list arguments);

    KeldMBString& Append(const char* text, int length);
    KeldMBString& Append(std::string_view text) {
        if (text.size() <= MaxLength - m_text.size() || HasRoomFor(text.size()))
            m_text.append(text);
        return *this;
    }
    KeldMBString& operator+=(const KeldMBString& text) { return Append(text.m_text); }
    KeldMBString& operator+=(const char* text);
    KeldMBString& operator+=(char c);
    void Reserve(int capacity);

    friend KeldMBString operator+(KeldMBString a, const KeldMBString& b) { return std::move(a += b); }
    friend KeldMBString operator+(KeldMBString a, const char* b) { return std::move(a += b); }
    friend KeldMBString operator+(KeldMBString a, char b) { return std::move(a += b); }
    friend KeldMBString operator+(const char* a, const KeldMBString& b) { return KeldMBString(a) += b; }

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
    /// Whether `added` more bytes fit; raises the assertion when they do not.
    bool HasRoomFor(std::size_t added) const;
    template <class Map>
    void MapLetters(Map map);

    std::string m_text;
    KELDCharset::Charset m_charset = KELDCharset::Current;
};

} // namespace KELD
