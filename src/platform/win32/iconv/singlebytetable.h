#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <utility>

namespace Platform {

/// A charset of one byte both ways.
class SingleByteTable {
public:
    using Characters = std::array<char32_t, 256>; ///< NoCharacter for undefined bytes

    /// Of several bytes of one character the least is written that is not one of those that are only read.
    SingleByteTable(const Characters& characters, // NOLINT(google-explicit-constructor)
                    const std::bitset<256>& onlyRead = {});

    /// Those of a page that the system has.
    static Characters OfPage(unsigned int codePage);

    char32_t Decode(unsigned char byte) const { return m_characters[byte]; }
    bool Encode(char32_t character, unsigned char& byte) const;
    bool HoldsAscii() const { return m_holdsAscii; }

private:
    Characters m_characters;
    std::array<std::pair<char32_t, unsigned char>, 256> m_bytes = {}; // by character
    std::size_t m_count = 0;
    bool m_holdsAscii = true;
};

} // namespace Platform
