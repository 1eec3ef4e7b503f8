#include "toolkit/xml/xmltext.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "toolkit/xml/bits.h"
#include "toolkit/xml/qzmarkupscan.h"

namespace Qzc {

namespace {

constexpr std::string_view CDataStart = "<![CDATA[";
constexpr std::string_view CDataEnd = "]]>";

// What stands for a byte in markup, and its bit in a set of such bytes.
struct Escape {
    char c;
    std::string_view entity;
};
constexpr std::array<Escape, 6> Escapes = {
    {{'<', "&lt;"}, {'&', "&amp;"}, {'>', "&gt;"}, {'\'', "&apos;"}, {'"', "&quot;"}, {'\0', "&#0;"}}};

constexpr std::array<unsigned char, 256> MakeEscapeBits() {
    std::array<unsigned char, 256> bits{};
    for (std::size_t i = 0; i < Escapes.size(); ++i)
        bits[static_cast<unsigned char>(Escapes[i].c)] = static_cast<unsigned char>(1U << i);
    return bits;
}
constexpr std::array<unsigned char, 256> EscapeBits = MakeEscapeBits();

constexpr unsigned EscapeBitsOf(std::string_view special) {
    unsigned bits = EscapeBits[0];
    for (const char c : special)
        bits |= EscapeBits[static_cast<unsigned char>(c)];
    return bits;
}
constexpr std::array<unsigned, 2> EscapeBitsIn = {EscapeBitsOf("<&>"), EscapeBitsOf("<&>'\"")};

unsigned EscapedIn(TextIn place) {
    return EscapeBitsIn[static_cast<std::size_t>(place)];
}

std::string_view EntityOf(unsigned bit) {
    return Escapes[static_cast<std::size_t>(TrailingZeros(bit))].entity;
}

} // namespace

void AppendEscaped(KeldMBString& markup, std::string_view text, TextIn place) {
    const unsigned escaped = EscapedIn(place);
    std::size_t copied = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const unsigned bit = EscapeBits[static_cast<unsigned char>(text[at])] & escaped;
        if (bit == 0)
            continue;
        markup.Append(text.substr(copied, at - copied));
        markup.Append(EntityOf(bit));
        copied = at + 1;
    }
    markup.Append(text.substr(copied));
}

char* WriteEscaped(char* to, std::string_view text, TextIn place) {
    const unsigned escaped = EscapedIn(place);
    const char* p = text.data();
    const char* const end = p + text.size();
    const auto putEntity = [&](unsigned bit) {
        const std::string_view entity = EntityOf(bit);
        std::memcpy(to, entity.data(), entity.size());
        to += entity.size();
    };
    const auto bitOf = [&](char c) { return EscapeBits[static_cast<unsigned char>(c)] & escaped; };
#if defined(__SSE2__)
    while (end - p >= 16) {
        const __m128i bytes = MarkupScan::Load16(p);
        const auto equals = [&](char c) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)); };
        __m128i found = _mm_or_si128(_mm_or_si128(equals('<'), equals('>')), _mm_or_si128(equals('&'), equals('\0')));
        if (place == TextIn::Attribute)
            found = _mm_or_si128(found, _mm_or_si128(equals('"'), equals('\'')));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
        const int stops = _mm_movemask_epi8(found);
        const int count = stops != 0 ? __builtin_ctz(static_cast<unsigned>(stops)) : 16;
        p += count;
        to += count;
        if (stops != 0)
            putEntity(bitOf(*p++));
    }
#endif
    for (; p != end; ++p) {
        *to = *p;
        const unsigned bit = bitOf(*p);
        if (bit == 0)
            ++to;
        else
            putEntity(bit);
    }
    return to;
}

std::size_t EscapedLength(std::string_view text, TextIn place) {
    const unsigned escaped = EscapedIn(place);
    std::size_t length = text.size();
    for (const char c : text) {
        const unsigned bit = EscapeBits[static_cast<unsigned char>(c)] & escaped;
        length += bit != 0 ? EntityOf(bit).size() - 1 : 0;
    }
    return length;
}

namespace {

// A numeric reference without its "&#": the digits stand before `text`'s first semicolon. False when they are
// too many or do not end.
bool AppendReference(std::string& data, std::string_view& text) {
    constexpr std::size_t MaxDigits = 7;
    std::string_view digits = text;
    const int base = !digits.empty() && digits[0] == 'x' ? 16 : 10;
    digits.remove_prefix(base == 16 ? 1 : 0);
    const std::size_t length = digits.substr(0, MaxDigits + 1).find(';');
    if (length == std::string_view::npos)
        return false;
    char number[MaxDigits + 1] = {};
    std::copy_n(digits.data(), length, number);
    const auto value = static_cast<unsigned>(std::strtol(number, nullptr, base));
    const auto put = [&](unsigned byte) { data += static_cast<char>(byte); };
    if (value < 0x80) {
        put(value);
    } else if (value < 0x800) {
        put(0xC0 | value >> 6);
        put(0x80 | (value & 0x3F));
    } else {
        put(0xE0 | (value >> 12 & 0x0F));
        put(0x80 | (value >> 6 & 0x3F));
        put(0x80 | (value & 0x3F));
    }
    text = digits.substr(length + 1);
    return true;
}

bool AppendEntity(std::string& data, std::string_view& text) {
    static constexpr struct {
        std::string_view name;
        char c;
    } Entities[] = {{"lt;", '<'}, {"amp;", '&'}, {"gt;", '>'}, {"apos;", '\''}, {"quot;", '"'}};
    for (const auto& entity : Entities) {
        if (text.substr(0, entity.name.size()) == entity.name) {
            data += entity.c;
            text.remove_prefix(entity.name.size());
            return true;
        }
    }
    return false;
}

} // namespace

std::size_t FindReference(std::string_view text) {
    const void* const found = text.empty() ? nullptr : std::memchr(text.data(), '&', text.size());
    return found != nullptr ? static_cast<std::size_t>(static_cast<const char*>(found) - text.data()) : text.size();
}

std::size_t FindMarkup(std::string_view text) {
    std::size_t at = 0;
#if defined(__SSE2__)
    for (; text.size() - at >= 16; at += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + at));
        const __m128i found =
            _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('&')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('<')));
        const int stops = _mm_movemask_epi8(found);
        if (stops != 0)
            return at + static_cast<std::size_t>(__builtin_ctz(static_cast<unsigned>(stops)));
    }
#endif
    while (at < text.size() && text[at] != '&' && text[at] != '<')
        ++at;
    return at;
}

void AppendUnescaped(std::string& data, std::string_view text) {
    std::size_t at = FindReference(text);
    for (; at != text.size(); at = FindReference(text)) {
        data.append(text.substr(0, at));
        text.remove_prefix(at + 1);
        bool resolved = false;
        if (!text.empty() && text[0] == '#') {
            std::string_view rest = text.substr(1);
            resolved = AppendReference(data, rest);
            if (resolved)
                text = rest;
        } else {
            resolved = AppendEntity(data, text);
        }
        if (!resolved)
            data += '&';
    }
    data.append(text);
}

KeldMBString Unescaped(std::string_view text) {
    std::string data;
    data.reserve(text.size());
    AppendUnescaped(data, text);
    return KeldMBString(std::move(data));
}

void AppendContent(std::string& data, std::string_view text) {
    for (;;) {
        const std::size_t at = FindMarkup(text);
        if (at == text.size()) {
            data.append(text);
            return;
        }
        const std::size_t node = std::min(text.find('<', at), text.size());
        AppendUnescaped(data, text.substr(0, node));
        text.remove_prefix(node);
        const char* const behind = text.empty() ? nullptr : MarkupScan::SkipNode(text.data());
        const auto length = static_cast<std::size_t>(behind != nullptr ? behind - text.data() : 0);
        if (length == 0 || length > text.size())
            return;
        if (text.substr(0, CDataStart.size()) == CDataStart)
            data.append(text.substr(CDataStart.size(), length - CDataStart.size() - CDataEnd.size()));
        text.remove_prefix(length);
    }
}

} // namespace Qzc
