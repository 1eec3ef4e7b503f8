#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Qzc {

/// Finds and copies stretches of ASCII in a charset whose units have 1, 2 or 4 bytes, low byte first.
class AsciiUnits {
public:
    static constexpr std::size_t WordSize = sizeof(std::uint64_t);
    static constexpr std::size_t ShortestStretch = 64; ///< that is worth a call less to the converter

    explicit AsciiUnits(int unit = 1);

    bool HoldsWord(const char* at) const {
        std::uint64_t word = 0;
        std::memcpy(&word, at, sizeof(word));
        return (word & m_others) == 0;
    }
    /// The bytes of whole ASCII units at the start.
    std::size_t StretchAt(const char* text, std::size_t length) const;
    /// Where the next stretch begins, from any unit on; the length when there is none.
    std::size_t FindStretch(const char* text, std::size_t start, std::size_t length) const;

    /// As units of another size.
    void Copy(const char* src, std::size_t units, char* dst, int dstUnit) const;

private:
    std::size_t m_unit;
    std::uint64_t m_others; ///< the bits of a word that no ASCII has
};

} // namespace Qzc
