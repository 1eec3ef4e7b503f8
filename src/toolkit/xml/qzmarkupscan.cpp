#include "toolkit/xml/qzmarkupscan.h"

#include <cstring>

#include "base/keldsystem.h"

namespace Qzc::MarkupScan {

namespace {

const char* Behind(const char* p, const char* end) {
    p = std::strstr(p, end);
    return p != nullptr ? p + std::strlen(end) : nullptr;
}

// The first `c` at or behind `p`, or the terminator; before `readable` sixteen bytes are looked at in one go.
const char* SkipToQuote(const char* p, const char* readable, char c) {
#if defined(__SSE2__)
    for (; readable - p >= 16; p += 16) {
        const __m128i bytes = Load16(p);
        const __m128i found =
            _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)), _mm_cmpeq_epi8(bytes, _mm_setzero_si128()));
        const int stops = _mm_movemask_epi8(found);
        if (stops != 0)
            return p + __builtin_ctz(static_cast<unsigned>(stops));
    }
#else
    (void)readable;
#endif
    return MarkupScan::SkipTo(p, c);
}

} // namespace

bool IsSecondByte(const char* start, const char* p) {
    using KELD::KELDCharset;
    using KELD::KeldSystem;
    // What stands before a run of lead bytes ends a character, so the run pairs up from its start.
    bool second = false;
    while (p != start && KeldSystem::IsLeadByte(KELDCharset::Current, static_cast<unsigned char>(*--p)))
        second = !second;
    return second;
}

bool NextAnyAttribute(const char*& p, const char* readable, TagAttribute& attribute) {
    const auto between = [](const char* start, const char* end) {
        return std::string_view(start, static_cast<std::size_t>(end - start));
    };
    const char* start = SkipBlanks(p);
    for (; Is(*start, Delimiter | Quote); start = SkipBlanks(start)) {
        if (*start == '>' || *start == '\0')
            return false;
        if (Is(*start, Quote)) {
            start = SkipToQuote(start + 1, readable, *start);
            start += *start != '\0' ? 1 : 0;
        } else {
            ++start;
        }
    }
    p = SkipName(start, readable);
    attribute.name = between(start, p);
    attribute.value = between(p, p);
    attribute.isQuoted = false;
    attribute.isPlain = false;
    const char* const sign = SkipBlanks(p);
    attribute.hasEqualsSign = *sign == '=';
    if (!attribute.hasEqualsSign)
        return true;
    p = sign + 1;
    const char* value = SkipBlanks(p);
    attribute.isQuoted = Is(*value, Quote);
    if (attribute.isQuoted) {
        const char* const end = SkipToQuote(value + 1, readable, *value);
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

const char* SkipComment(const char* p) {
    return Behind(p + std::strlen("<!--"), "-->");
}

const char* SkipCData(const char* p) {
    return Behind(p + std::strlen("<![CDATA["), "]]>");
}

const char* SkipInstruction(const char* p) {
    return Behind(p + std::strlen("<?"), "?>");
}

const char* SkipDeclaration(const char* p) {
    int brackets = 0;
    int angles = 0;
    while (p != nullptr && *p != '\0') {
        switch (*p) {
        case '"':
        case '\'': p = std::strchr(p + 1, *p); break;
        case '[': ++brackets; break;
        case ']': --brackets; break;
        case '<':
            if (std::strncmp(p, "<!--", 4) == 0) {
                p = SkipComment(p);
                continue;
            }
            if (p[1] == '?') {
                p = SkipInstruction(p);
                continue;
            }
            ++angles;
            break;
        case '>':
            --angles;
            if (angles <= 0 && brackets <= 0)
                return p + 1;
            break;
        default: break;
        }
        if (p != nullptr)
            ++p;
    }
    return nullptr;
}

const char* SkipNode(const char* p) {
    if (p[1] == '?')
        return SkipInstruction(p);
    if (p[1] != '!')
        return nullptr;
    if (std::strncmp(p, "<!--", 4) == 0)
        return SkipComment(p);
    return std::strncmp(p, "<![CDATA[", 9) == 0 ? SkipCData(p) : SkipDeclaration(p);
}

} // namespace Qzc::MarkupScan
