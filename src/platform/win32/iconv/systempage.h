#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/win32/iconv/charsetcodec.h"

namespace Platform {

/// A code page as the system has it.
class SystemPage {
public:
    explicit SystemPage(unsigned int codePage);

    /// What the system makes of a byte, if that is a character that comes back as the same byte: it lets bytes through
    /// that a charset leaves undefined, and takes similar characters for missing ones. Else NoCharacter.
    char32_t Decode(unsigned char byte) const;

    /// The same of two bytes, and also a character that comes back as two others which are it as well: some charsets
    /// have one in two places, and the system writes one of them.
    char32_t Decode(const unsigned char (&bytes)[2], bool& isWritten) const;

private:
    char32_t ToUnicode(const char* text, int count) const;
    int FromUnicode(char32_t character, char (&text)[8]) const;

    unsigned int m_codePage;
    bool m_takesFlags;
};

/// A code page of one and two bytes both ways. Asking the system takes a hundred times as long.
class DoubleByteTable {
public:
    /// Made at the first question, and kept. Null when the system has no such page.
    static const DoubleByteTable* Of(unsigned int codePage);

    /// The character of a byte from 0x80 on, or of two of which the first is such a one; 0 for none.
    char16_t Decode(unsigned char byte) const { return m_single[byte - 0x80U]; }
    char16_t Decode(unsigned char first, unsigned char second) const { return m_double[first - 0x80U][second]; }

    /// The bytes of a character that is not in ASCII, the first one above the second; 0 for none.
    unsigned int Encode(char32_t character) const { return character <= 0xFFFF ? m_bytes[character] : 0; }

private:
    explicit DoubleByteTable(const SystemPage& page);

    std::array<char16_t, 0x80> m_single = {};
    std::array<std::array<char16_t, 0x100>, 0x80> m_double = {};
    std::array<std::uint16_t, 0x10000> m_bytes = {};
};

} // namespace Platform
