#pragma once

#include <cstdint>

namespace KELD {

/// The bit 0x20 of each of eight bytes that lies between `first` and `last`, both ASCII: what an ASCII letter's two
/// cases differ by. Each sum reaches its byte's top bit from the one bound on, and from behind the other on.
constexpr std::uint64_t CaseBits(std::uint64_t word, char first, char last) {
    constexpr std::uint64_t Each = 0x0101010101010101;
    const std::uint64_t low = word & Each * 0x7F;
    const std::uint64_t fromFirst = low + Each * (0x80 - static_cast<std::uint64_t>(first));
    const std::uint64_t behindLast = low + Each * (0x7F - static_cast<std::uint64_t>(last));
    return (fromFirst & ~behindLast & ~word & Each * 0x80) >> 2;
}

constexpr std::uint64_t ToUpperAscii(std::uint64_t word) {
    return word ^ CaseBits(word, 'a', 'z');
}
constexpr std::uint64_t ToLowerAscii(std::uint64_t word) {
    return word ^ CaseBits(word, 'A', 'Z');
}

} // namespace KELD
