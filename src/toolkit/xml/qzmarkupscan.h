#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Qzc::MarkupScan {

// What a byte means to the scanner. Text is zero-terminated, and the terminator ends every run.
enum ByteClass : unsigned char {
    Blank = 1,     ///< white space
    Delimiter = 2, ///< ends a token: white space, one of <>=\/?! and the terminator
    Quote = 4,
    Stop = 8,       ///< the parser cannot run over it without a look: < > " ' and the terminator
    NameStart = 16, ///< can start a name that is written
    NamePart = 32   ///< can only follow in one
};

constexpr std::array<unsigned char, 256> MakeClasses() {
    std::array<unsigned char, 256> classes{};
    for (const char c : {' ', '\t', '\n', '\r'})
        classes[static_cast<unsigned char>(c)] = Blank | Delimiter;
    for (const char c : {'<', '>', '=', '\\', '/', '?', '!', '\0'})
        classes[static_cast<unsigned char>(c)] |= Delimiter;
    for (const char c : {'"', '\''})
        classes[static_cast<unsigned char>(c)] |= Quote | Stop;
    for (const char c : {'<', '>', '\0'})
        classes[static_cast<unsigned char>(c)] |= Stop;
    for (int c = 0; c < 256; ++c) {
        const bool isLetter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        if (isLetter || c == '_' || c == ':' || c >= 128)
            classes[static_cast<std::size_t>(c)] |= NameStart;
        else if ((c >= '0' && c <= '9') || c == '-' || c == '.')
            classes[static_cast<std::size_t>(c)] |= NamePart;
    }
    return classes;
}

inline constexpr std::array<unsigned char, 256> Classes = MakeClasses();

inline bool Is(char c, unsigned char classes) {
    return (Classes[static_cast<unsigned char>(c)] & classes) != 0;
}

/// The first byte at or behind `p` that is of one of the classes. The terminator must be, or be a stop by
/// itself.
inline const char* SkipTo(const char* p, unsigned char classes) {
    while (!Is(*p, classes))
        ++p;
    return p;
}

inline const char* SkipBlanks(const char* p) {
    while (Is(*p, Blank))
        ++p;
    return p;
}

/// The first `c` at or behind `p`, or the terminator.
inline const char* SkipTo(const char* p, char c) {
    while (*p != c && *p != '\0')
        ++p;
    return p;
}

/// Whether the byte is the second of a two-byte character; `start` is the start of some character before it.
bool IsSecondByte(const char* start, const char* p);

/// Whether a name (or an unquoted value) behind `start` ends at `p`. A two-byte character may end in the byte
/// that otherwise is a backslash.
inline bool EndsName(const char* start, const char* p) {
    return Is(*p, Delimiter) && (*p != '\\' || !IsSecondByte(start, p));
}

/// Finds stops, 64 bytes at a time: one look gives a bit for each byte of a block, and the runs between
/// stops, which are most of a document, cost nothing more.
class StopFinder {
public:
    /// In the zero-terminated text that ends at `end`, from `start` on.
    StopFinder(const char* start, const char* end) : m_blockEnd(start), m_end(end) {}

    /// The first stop at or behind `p`, which never goes back.
    const char* Next(const char* p) {
        if (p < m_blockEnd) {
            const std::uint64_t stops = m_stops >> (BlockSize - (m_blockEnd - p));
            if (stops != 0)
                return p + __builtin_ctzll(stops);
            p = m_blockEnd;
        }
        while ((m_stops = FindStops(p)) == 0)
            p += BlockSize;
        m_blockEnd = p + BlockSize;
        return p + __builtin_ctzll(m_stops);
    }

private:
    static constexpr std::ptrdiff_t BlockSize = 64;

    std::uint64_t FindStops(const char* p) const {
        if (m_end - p >= BlockSize)
            return FindBlockStops(p);
        char tail[BlockSize] = {}; // what is behind the text must not be read; the zeros stand for the terminator
        std::memcpy(tail, p, static_cast<std::size_t>(m_end - p));
        return FindBlockStops(tail);
    }

#if defined(__SSE2__)
    static std::uint64_t FindBlockStops(const char* block) {
        std::uint64_t stops = 0;
        for (int i = 0; i < BlockSize; i += 16) {
            const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + i));
            const auto equals = [&](char c) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)); };
            const __m128i found = _mm_or_si128(
                _mm_or_si128(_mm_or_si128(equals('<'), equals('>')), _mm_or_si128(equals('"'), equals('\''))),
                equals('\0'));
            stops |= static_cast<std::uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(found))) << i;
        }
        return stops;
    }
#else
    static std::uint64_t FindBlockStops(const char* block) {
        std::uint64_t stops = 0;
        for (int i = 0; i < BlockSize; ++i)
            stops |= static_cast<std::uint64_t>(Is(block[i], Stop)) << i;
        return stops;
    }
#endif

    const char* m_blockEnd; // m_stops tells of the BlockSize bytes before it
    const char* m_end;
    std::uint64_t m_stops = 0;
};

/// Behind the name (or the unquoted value) that starts at `p`.
inline const char* SkipName(const char* p) {
    const char* const start = p;
    while (!EndsName(start, p))
        ++p;
    return p;
}

/// The first `c` at or behind `p`, or the terminator; before `readable` sixteen bytes are looked at in one go.
inline const char* SkipTo(const char* p, const char* readable, char c) {
#if defined(__SSE2__)
    for (; readable - p >= 16; p += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i found =
            _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)), _mm_cmpeq_epi8(bytes, _mm_setzero_si128()));
        const int stops = _mm_movemask_epi8(found);
        if (stops != 0)
            return p + __builtin_ctz(static_cast<unsigned>(stops));
    }
#else
    (void)readable;
#endif
    return SkipTo(p, c);
}

/// An attribute as it stands in a start tag. Where there is no value it is empty and marks its place.
struct TagAttribute {
    std::string_view name;
    std::string_view value; ///< without its quotes
    bool isQuoted = false;
    bool hasEqualsSign = false;
};

/// Takes the next attribute from inside a start tag and moves `p` behind it; false at the tag's end. Bytes before
/// `readable` may be read beyond the tag.
inline bool NextAttribute(const char*& p, const char* readable, TagAttribute& attribute) {
    const auto between = [](const char* start, const char* end) {
        return std::string_view(start, static_cast<std::size_t>(end - start));
    };
    const char* start = SkipBlanks(p);
    for (; Is(*start, Delimiter | Quote); start = SkipBlanks(start)) {
        if (*start == '>' || *start == '\0')
            return false;
        if (Is(*start, Quote)) {
            start = SkipTo(start + 1, readable, *start);
            start += *start != '\0' ? 1 : 0;
        } else {
            ++start;
        }
    }
    p = SkipName(start);
    attribute.name = between(start, p);
    attribute.value = between(p, p);
    attribute.isQuoted = false;
    const char* const sign = SkipBlanks(p);
    attribute.hasEqualsSign = *sign == '=';
    if (!attribute.hasEqualsSign)
        return true;
    p = sign + 1;
    const char* value = SkipBlanks(p);
    attribute.isQuoted = Is(*value, Quote);
    if (attribute.isQuoted) {
        const char* const end = SkipTo(value + 1, readable, *value);
        attribute.value = between(value + 1, end);
        p = end + (*end != '\0' ? 1 : 0);
    } else if (!Is(*value, Delimiter)) {
        const char* const end = SkipName(value);
        attribute.value = between(value, end);
        p = end;
    } else {
        attribute.value = between(p, p);
    }
    return true;
}

/// At "<!" or "<?": behind the node that starts there, null when it does not end.
const char* SkipComment(const char* p);
const char* SkipCData(const char* p);
const char* SkipInstruction(const char* p);
const char* SkipNode(const char* p); ///< whichever of them it is
const char* SkipDeclaration(const char* p); ///< with an internal subset, its quotes, comments and instructions

} // namespace Qzc::MarkupScan
