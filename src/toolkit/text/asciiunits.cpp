#include "toolkit/text/asciiunits.h"

#include <array>

namespace Qzc {

namespace {

template <class From, class To>
void CopyUnits(const char* src, std::size_t count, char* dst) {
    if constexpr (sizeof(From) == sizeof(To)) {
        std::memcpy(dst, src, count * sizeof(From));
        return;
    }
    constexpr std::size_t Block = 16; // a fixed number, out of an array of its own, is what compilers make vectors of
    for (; count >= Block; count -= Block) {
        std::array<From, Block> from;
        std::memcpy(from.data(), src, sizeof(from));
        for (std::size_t i = 0; i < Block; ++i) {
            const To unit = static_cast<To>(from[i]);
            std::memcpy(dst + i * sizeof(unit), &unit, sizeof(unit));
        }
        src += sizeof(from);
        dst += Block * sizeof(To);
    }
    for (; count != 0; --count) {
        From unit = 0;
        std::memcpy(&unit, src, sizeof(unit));
        const To wide = static_cast<To>(unit);
        std::memcpy(dst, &wide, sizeof(wide));
        src += sizeof(unit);
        dst += sizeof(wide);
    }
}

template <class From>
void CopyFrom(const char* src, std::size_t count, char* dst, int dstUnit) {
    switch (dstUnit) {
    case 1: CopyUnits<From, std::uint8_t>(src, count, dst); break;
    case 2: CopyUnits<From, std::uint16_t>(src, count, dst); break;
    default: CopyUnits<From, std::uint32_t>(src, count, dst); break;
    }
}

} // namespace

AsciiUnits::AsciiUnits(int unit) : m_unit(static_cast<std::size_t>(unit)), m_others(0) {
    unsigned char bytes[WordSize];
    for (std::size_t i = 0; i < WordSize; ++i)
        bytes[i] = i % m_unit == 0 ? 0x80 : 0xFF;
    std::memcpy(&m_others, bytes, sizeof(m_others));
}

std::size_t AsciiUnits::StretchAt(const char* text, std::size_t length) const {
    std::size_t at = 0;
    std::array<std::uint64_t, 8> words;
    for (; length - at >= sizeof(words); at += sizeof(words)) {
        std::memcpy(words.data(), text + at, sizeof(words));
        std::uint64_t all = 0;
        for (const std::uint64_t word : words)
            all |= word;
        if ((all & m_others) != 0)
            break;
    }
    while (length - at >= WordSize && HoldsWord(text + at))
        at += WordSize;
    for (; length - at >= m_unit; at += m_unit) {
        if (static_cast<unsigned char>(text[at]) >= 0x80)
            break;
        for (std::size_t i = 1; i < m_unit; ++i) {
            if (text[at + i] != '\0')
                return at;
        }
    }
    return at;
}

std::size_t AsciiUnits::FindStretch(const char* text, std::size_t start, std::size_t length) const {
    while (length - start >= ShortestStretch) {
        std::size_t at = ShortestStretch;
        while (at != 0 && HoldsWord(text + start + at - WordSize))
            at -= WordSize;
        if (at == 0)
            return start;
        start += at; // a multiple of the unit behind what is none of ASCII
    }
    return length;
}

void AsciiUnits::Copy(const char* src, std::size_t units, char* dst, int dstUnit) const {
    switch (m_unit) {
    case 1: CopyFrom<std::uint8_t>(src, units, dst, dstUnit); break;
    case 2: CopyFrom<std::uint16_t>(src, units, dst, dstUnit); break;
    default: CopyFrom<std::uint32_t>(src, units, dst, dstUnit); break;
    }
}

} // namespace Qzc
