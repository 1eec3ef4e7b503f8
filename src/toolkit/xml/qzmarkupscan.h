#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "toolkit/qzmarkupranges.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Qzc::MarkupScan {

// What a byte means to the scanner. Text is zero-terminated, and the terminator ends every run.
enum ByteClass : unsigned char {
    Blank = 1,     ///< white space
    Delimiter = 2, ///< ends a token: white space, one of <>=\/?! and the terminator
    Quote = 4,
    NameStart = 8, ///< can start a name that is written
    NamePart = 16, ///< can only follow in one
    NameEnd = 32   ///< a delimiter that cannot be the second byte of a character
};

constexpr std::array<unsigned char, 256> MakeClasses() {
    std::array<unsigned char, 256> classes{};
    for (const char c : {' ', '\t', '\n', '\r'})
        classes[static_cast<unsigned char>(c)] = Blank | Delimiter | NameEnd;
    for (const char c : {'<', '>', '=', '\\', '/', '?', '!', '\0'})
        classes[static_cast<unsigned char>(c)] |= c != '\\' ? Delimiter | NameEnd : Delimiter;
    for (const char c : {'"', '\''})
        classes[static_cast<unsigned char>(c)] |= Quote;
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

#if defined(__SSE2__)
/// A bit for each of 16 bytes that may end a name. Those up to '!' are all taken for delimiters, which few are.
inline unsigned NameStops(__m128i bytes) {
    const auto equals = [&](char c) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)); };
    const auto upTo = [&](char c) { return _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8(c)), bytes); };
    const __m128i fromLess = _mm_andnot_si128(upTo('<' - 1), upTo('?'));
    const __m128i ends = _mm_or_si128(_mm_or_si128(upTo('!'), fromLess), _mm_or_si128(equals('/'), equals('\\')));
    return static_cast<unsigned>(_mm_movemask_epi8(ends));
}

inline __m128i Load16(const char* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
#endif

/// Whether the name that ends before `end`, where no name goes on, is the one that stands at `opened`, as can be told
/// at a glance where it is short. The text may be read up to `readable`.
[[gnu::always_inline]] inline bool IsShortName([[maybe_unused]] const char* name, [[maybe_unused]] const char* end,
                                               [[maybe_unused]] const char* opened,
                                               [[maybe_unused]] const char* readable) {
#if defined(__SSE2__)
    const auto length = static_cast<std::size_t>(end - name);
    if (length - 1 >= 15 || readable - name < 16)
        return false;
    const __m128i bytes = Load16(name);
    const auto same = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, Load16(opened))));
    const unsigned fits = same & ~NameStops(bytes);
    return (~fits & ((1U << length) - 1)) == 0 && Is(opened[length], NameEnd);
#else
    return false;
#endif
}

/// Behind the name (or the unquoted value) that starts at `p`.
inline const char* SkipName(const char* p) {
    const char* const start = p;
    while (!EndsName(start, p))
        ++p;
    return p;
}

/// The same; before `readable` sixteen bytes are looked at in one go.
inline const char* SkipName(const char* p, [[maybe_unused]] const char* readable) {
#if defined(__SSE2__)
    if (readable - p >= 16) {
        const char* const end = p + __builtin_ctz(NameStops(Load16(p)) | 1U << 16);
        if (end - p < 16 && *end != '\\' && Is(*end, Delimiter))
            return end;
    }
#endif
    return SkipName(p);
}

/// Takes the next attribute from inside a start tag, whatever it looks like, and moves `p` behind it.
bool NextAnyAttribute(const char*& p, const char* readable, TagAttribute& attribute);

#if defined(__SSE2__)
/// Looks at the next block of the tag. False where that cannot be read.
[[gnu::always_inline]] inline bool NextTagBlock(TagScan& scan) {
    constexpr std::ptrdiff_t BlockSize = 32;
    scan.block = scan.block != nullptr ? scan.block + BlockSize : scan.next;
    if (scan.readable - scan.block < BlockSize)
        return false;
    scan.stops = 0;
    scan.references = 0;
    for (int i = 0; i < BlockSize; i += 16) {
        const __m128i bytes = Load16(scan.block + i);
        const auto equals = [&](char c) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)); };
        const auto bits = [i](__m128i found) { return static_cast<unsigned>(_mm_movemask_epi8(found)) << i; };
        scan.stops |=
            bits(_mm_or_si128(_mm_or_si128(equals('>'), equals('\0')), _mm_or_si128(equals('"'), equals('\''))));
        scan.references |= bits(equals('&'));
    }
    return true;
}

/// NextAttribute for what nearly all attributes are, blanks and name="value" with a short name, and for the end of the
/// tag behind them: finds the quotes of a block at one look, so that one attribute need not wait for the one before.
/// 1 for an attribute, 0 for the end, and -1 where it cannot tell.
[[gnu::always_inline]] inline int NextCommonAttribute(TagScan& scan, TagAttribute& attribute) {
    const auto takeStop = [&] {
        const char* const stop = scan.block + __builtin_ctz(scan.stops);
        scan.stops &= scan.stops - 1;
        return stop;
    };
    const char* const start = SkipBlanks(scan.next);
    if (*start == '>' || (*start == '/' && start[1] == '>'))
        return 0;
    while (scan.stops == 0) {
        if (!NextTagBlock(scan))
            return -1;
    }
    const char* const open = takeStop();
    const std::ptrdiff_t length = open - 1 - start;
    if (!Is(*open, Quote) || open[-1] != '=' || length <= 0 || length > 16 || scan.readable - start < 16 ||
        (NameStops(Load16(start)) & ((1U << length) - 1)) != 0)
        return -1;

    bool hasReference = false;
    unsigned references = scan.references & ~0U << (open - scan.block);
    const char* close = nullptr;
    do {
        while (scan.stops == 0) {
            hasReference = hasReference || references != 0;
            if (!NextTagBlock(scan))
                return -1;
            references = scan.references;
        }
        close = takeStop();
        if (*close == '\0')
            return -1;
    } while (*close != *open);
    references &= (1U << (close - scan.block)) - 1;

    attribute.name = std::string_view(start, static_cast<std::size_t>(length));
    attribute.value = std::string_view(open + 1, static_cast<std::size_t>(close - open - 1));
    attribute.isQuoted = true;
    attribute.hasEqualsSign = true;
    attribute.isPlain = !hasReference && references == 0;
    scan.next = close + 1;
    return 1;
}
#endif

/// Takes the next attribute from inside a start tag; false at the tag's end.
[[gnu::always_inline]] inline bool NextAttribute(TagScan& scan, TagAttribute& attribute) {
#if defined(__SSE2__)
    const int found = NextCommonAttribute(scan, attribute);
    if (found >= 0)
        return found != 0;
    scan.block = nullptr;
    scan.stops = 0;
#endif
    return NextAnyAttribute(scan.next, scan.readable, attribute);
}

/// At "<!" or "<?": behind the node that starts there, null when it does not end.
const char* SkipComment(const char* p);
const char* SkipCData(const char* p);
const char* SkipInstruction(const char* p);
const char* SkipNode(const char* p);        ///< whichever of them it is
const char* SkipDeclaration(const char* p); ///< with an internal subset, its quotes, comments and instructions

} // namespace Qzc::MarkupScan
