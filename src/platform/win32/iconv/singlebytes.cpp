// Charsets of one byte: those of the system, and tables for what it lacks.

#include <algorithm>
#include <string>
#include <utility>

#include "platform/win32/iconv/codecs.h"
#include "platform/win32/iconv/singlebytetable.h"
#include "platform/win32/iconv/systempage.h"
#include "platform/win32/system.h"

namespace Platform {

namespace {

class SingleBytes : public CharsetCodec {
public:
    explicit SingleBytes(const SingleByteTable& table) : m_table(table) {}

    int Decode(const unsigned char* text, std::size_t, char32_t& character) override {
        character = m_table.Decode(text[0]);
        return character != NoCharacter ? 1 : Invalid;
    }
    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        unsigned char byte = 0;
        return m_table.Encode(character, byte) ? Put(&byte, 1, room, size) : Invalid;
    }
    int AsciiUnit() const override { return m_table.HoldsAscii() ? 1 : 0; }

private:
    SingleByteTable m_table;
};

// What ISO 8859 has and the system lacks, from 0xA0 on.
constexpr std::array<char16_t, 96> Nordic10 = {
    0x00A0, 0x0104, 0x0112, 0x0122, 0x012A, 0x0128, 0x0136, 0x00A7, 0x013B, 0x0110, 0x0160, 0x0166, 0x017D, 0x00AD,
    0x016A, 0x014A, 0x00B0, 0x0105, 0x0113, 0x0123, 0x012B, 0x0129, 0x0137, 0x00B7, 0x013C, 0x0111, 0x0161, 0x0167,
    0x017E, 0x2015, 0x016B, 0x014B, 0x0100, 0x00C1, 0x00C2, 0x00C3, 0x00C4, 0x00C5, 0x00C6, 0x012E, 0x010C, 0x00C9,
    0x0118, 0x00CB, 0x0116, 0x00CD, 0x00CE, 0x00CF, 0x00D0, 0x0145, 0x014C, 0x00D3, 0x00D4, 0x00D5, 0x00D6, 0x0168,
    0x00D8, 0x0172, 0x00DA, 0x00DB, 0x00DC, 0x00DD, 0x00DE, 0x00DF, 0x0101, 0x00E1, 0x00E2, 0x00E3, 0x00E4, 0x00E5,
    0x00E6, 0x012F, 0x010D, 0x00E9, 0x0119, 0x00EB, 0x0117, 0x00ED, 0x00EE, 0x00EF, 0x00F0, 0x0146, 0x014D, 0x00F3,
    0x00F4, 0x00F5, 0x00F6, 0x0169, 0x00F8, 0x0173, 0x00FA, 0x00FB, 0x00FC, 0x00FD, 0x00FE, 0x0138};
constexpr std::pair<unsigned char, char16_t> Celtic14[] = {
    {0xA1, 0x1E02}, {0xA2, 0x1E03}, {0xA4, 0x010A}, {0xA5, 0x010B}, {0xA6, 0x1E0A}, {0xA8, 0x1E80}, {0xAA, 0x1E82},
    {0xAB, 0x1E0B}, {0xAC, 0x1EF2}, {0xAF, 0x0178}, {0xB0, 0x1E1E}, {0xB1, 0x1E1F}, {0xB2, 0x0120}, {0xB3, 0x0121},
    {0xB4, 0x1E40}, {0xB5, 0x1E41}, {0xB7, 0x1E56}, {0xB8, 0x1E81}, {0xB9, 0x1E57}, {0xBA, 0x1E83}, {0xBB, 0x1E60},
    {0xBC, 0x1EF3}, {0xBD, 0x1E84}, {0xBE, 0x1E85}, {0xBF, 0x1E61}, {0xD0, 0x0174}, {0xD7, 0x1E6A}, {0xDE, 0x0176},
    {0xF0, 0x0175}, {0xF7, 0x1E6B}, {0xFE, 0x0177}};
constexpr std::pair<unsigned char, char16_t> Romanian16[] = {
    {0xA1, 0x0104}, {0xA2, 0x0105}, {0xA3, 0x0141}, {0xA4, 0x20AC}, {0xA5, 0x201E}, {0xA6, 0x0160}, {0xA8, 0x0161},
    {0xAA, 0x0218}, {0xAC, 0x0179}, {0xAE, 0x017A}, {0xAF, 0x017B}, {0xB2, 0x010C}, {0xB3, 0x0142}, {0xB4, 0x017D},
    {0xB5, 0x201D}, {0xB8, 0x017E}, {0xB9, 0x010D}, {0xBA, 0x0219}, {0xBC, 0x0152}, {0xBD, 0x0153}, {0xBE, 0x0178},
    {0xBF, 0x017C}, {0xC3, 0x0102}, {0xC5, 0x0106}, {0xD0, 0x0110}, {0xD1, 0x0143}, {0xD5, 0x0150}, {0xD7, 0x015A},
    {0xD8, 0x0170}, {0xDD, 0x0118}, {0xDE, 0x021A}, {0xE3, 0x0103}, {0xE5, 0x0107}, {0xF0, 0x0111}, {0xF1, 0x0144},
    {0xF5, 0x0151}, {0xF7, 0x015B}, {0xF8, 0x0171}, {0xFD, 0x0119}, {0xFE, 0x021B}};

SingleByteTable::Characters Latin() {
    SingleByteTable::Characters characters = {};
    for (std::size_t i = 0; i < characters.size(); ++i)
        characters[i] = static_cast<char32_t>(i);
    return characters;
}

template <class Changes>
SingleByteTable::Characters LatinWith(const Changes& changes) {
    SingleByteTable::Characters characters = Latin();
    for (const auto& [byte, character] : changes)
        characters[byte] = character;
    return characters;
}

} // namespace

SingleByteTable::SingleByteTable(const Characters& characters) : m_characters(characters) {
    for (std::size_t i = 0; i < m_characters.size(); ++i) {
        if (m_characters[i] != NoCharacter)
            m_bytes[m_count++] = {m_characters[i], static_cast<unsigned char>(i)};
        m_holdsAscii = m_holdsAscii && (i >= 0x80 || m_characters[i] == i);
    }
    std::sort(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_count));
}

bool SingleByteTable::Encode(char32_t character, unsigned char& byte) const {
    const auto end = m_bytes.begin() + static_cast<std::ptrdiff_t>(m_count);
    const auto found = std::lower_bound(m_bytes.begin(), end, std::make_pair(character, static_cast<unsigned char>(0)));
    if (found == end || found->first != character)
        return false;
    byte = found->second;
    return true;
}

SingleByteTable::Characters SingleByteTable::OfPage(unsigned int codePage) {
    const SystemPage page(codePage);
    // The system lets through what a charset leaves undefined: as controls of that number, or as private characters.
    const bool isWindows = codePage / 10 == 125;
    const bool isMacintosh = codePage == 10000;
    Characters characters = {};
    for (std::size_t i = 0; i < characters.size(); ++i) {
        const auto byte = static_cast<unsigned char>(i);
        const char32_t character = page.Decode(&byte, 1);
        const bool isControl = isWindows && i >= 0x80 && i < 0xA0 && character == i;
        const bool isPrivate = !isMacintosh && character >= 0xF700 && character <= 0xF8FF;
        characters[i] = isControl || isPrivate ? NoCharacter : character;
    }
    return characters;
}

std::unique_ptr<CharsetCodec> MakeOwnTable(std::string_view name) {
    const auto is = [&](std::string_view number) {
        return name == std::string("ISO-8859-").append(number) || name == std::string("ISO8859-").append(number);
    };
    SingleByteTable::Characters characters = Latin();
    if (is("10")) {
        std::copy(Nordic10.begin(), Nordic10.end(), characters.begin() + 0xA0);
    } else if (is("11")) {
        for (std::size_t i = 0xA1; i < characters.size(); ++i)
            characters[i] = (i > 0xDA && i < 0xDF) || i > 0xFB ? NoCharacter : static_cast<char32_t>(i - 0xA0 + 0x0E00);
    } else if (is("14")) {
        characters = LatinWith(Celtic14);
    } else if (is("16")) {
        characters = LatinWith(Romanian16);
    } else {
        return nullptr;
    }
    return std::make_unique<SingleBytes>(characters);
}

std::unique_ptr<CharsetCodec> MakeAscii() {
    SingleByteTable::Characters characters = Latin();
    std::fill(characters.begin() + 0x80, characters.end(), NoCharacter);
    return std::make_unique<SingleBytes>(characters);
}

std::unique_ptr<CharsetCodec> MakeSingleBytes(unsigned int codePage) {
    CPINFO information = {};
    if (GetCPInfo(codePage, &information) == 0 || information.MaxCharSize != 1)
        return nullptr;
    return std::make_unique<SingleBytes>(SingleByteTable::OfPage(codePage));
}

} // namespace Platform
