// Charsets of one byte: those of the system, and tables for what it lacks.

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>

#include "platform/win32/iconv/codecs.h"
#include "platform/win32/iconv/singlebytetable.h"
#include "platform/win32/iconv/singlebytetables.h"
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

SingleByteTable::Characters Latin() {
    SingleByteTable::Characters characters = {};
    for (std::size_t i = 0; i < characters.size(); ++i)
        characters[i] = static_cast<char32_t>(i);
    return characters;
}

// The row's own runs over those of its base.
SingleByteTable::Characters CharactersOf(int row) {
    const int base = TableRows[row].base;
    SingleByteTable::Characters characters = base < 0 ? Latin() : CharactersOf(base);
    for (std::size_t i = TableRows[row].firstRun; i < TableRows[row + 1].firstRun; ++i) {
        const std::uint32_t first = TableRuns[i] >> 24;
        const std::uint32_t character = TableRuns[i] & 0xFFFF;
        for (std::uint32_t more = 0; more <= (TableRuns[i] >> 16 & 0xFF); ++more)
            characters[first + more] = character == 0xFFFF ? NoCharacter : character + more;
    }
    return characters;
}

} // namespace

SingleByteTable::SingleByteTable(const Characters& characters, const std::bitset<256>& onlyRead)
    : m_characters(characters) {
    for (std::size_t i = 0; i < m_characters.size(); ++i) {
        if (m_characters[i] != NoCharacter && !onlyRead[i])
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
        const char32_t character = page.Decode(byte);
        const bool isControl = isWindows && i >= 0x80 && i < 0xA0 && character == i;
        const bool isPrivate = !isMacintosh && character >= 0xF700 && character <= 0xF8FF;
        characters[i] = isControl || isPrivate ? NoCharacter : character;
    }
    return characters;
}

std::unique_ptr<CharsetCodec> MakeOwnTable(std::string_view name) {
    const auto* const found =
        std::lower_bound(std::begin(TableNames), std::end(TableNames), name,
                         [](const TableName& row, std::string_view key) { return row.name < key; });
    if (found == std::end(TableNames) || found->name != name)
        return nullptr;
    std::bitset<256> onlyRead;
    for (const ReadOnlyByte& each : ReadOnlyBytes) {
        if (each.row == found->row)
            onlyRead.set(each.byte);
    }
    const SingleByteTable table(CharactersOf(found->row), onlyRead);
    return found->row == TcvnRow ? MakeTcvn(table) : std::make_unique<SingleBytes>(table);
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
