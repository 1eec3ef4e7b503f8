#include "platform/win32/charsetcodec.h"

#include <algorithm>
#include <array>
#include <string>
#include <unordered_map>
#include <utility>

#include "platform/win32/codepage.h"
#include "platform/win32/system.h"

namespace Platform {

namespace {

constexpr char32_t LastCharacter = 0x10FFFF;
constexpr char32_t None = 0xFFFFFFFF;
constexpr char32_t ByteOrderMark = 0xFEFF;

bool IsSurrogate(char32_t character) {
    return character >= 0xD800 && character <= 0xDFFF;
}

class Utf8 : public CharsetCodec {
public:
    int Decode(const unsigned char* text, std::size_t length, char32_t& character) override {
        const unsigned char first = text[0];
        if (first < 0x80) {
            character = first;
            return 1;
        }
        const int size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
        if (first < 0xC2 || first > 0xF4)
            return Invalid;
        character = first & (0x7FU >> size);
        for (int i = 1; i < size; ++i) {
            if (static_cast<std::size_t>(i) == length)
                return Short;
            if ((text[i] & 0xC0) != 0x80)
                return Invalid;
            character = character << 6 | (text[i] & 0x3FU);
        }
        constexpr char32_t Least[] = {0, 0, 0x80, 0x800, 0x10000};
        return character < Least[size] || IsSurrogate(character) || character > LastCharacter ? Invalid : size;
    }
    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        if (IsSurrogate(character) || character > LastCharacter)
            return Invalid;
        const int count = character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
        if (size < static_cast<std::size_t>(count))
            return Short;
        for (int i = count - 1; i > 0; --i) {
            room[i] = static_cast<unsigned char>(0x80 | (character & 0x3F));
            character >>= 6;
        }
        constexpr unsigned char Lead[] = {0, 0, 0xC0, 0xE0, 0xF0};
        room[0] = static_cast<unsigned char>(Lead[count] | character);
        return count;
    }
};

/// Units of two or four bytes in either order.
class Units : public CharsetCodec {
public:
    enum class Mark { Text, Read, ReadAndWritten }; ///< what becomes of a byte-order mark at the start

    Units(int size, bool isBig, bool hasPairs, Mark mark)
        : m_size(size), m_startsBig(isBig), m_hasPairs(hasPairs), m_mark(mark), m_isBig(isBig) {}

    int Decode(const unsigned char* text, std::size_t length, char32_t& character) override {
        int skipped = 0;
        if (m_isAtStart && m_mark != Mark::Text) {
            if (length < static_cast<std::size_t>(m_size))
                return Short;
            const char32_t first = Unit(text, m_isBig);
            const char32_t other = Unit(text, !m_isBig);
            if (first == ByteOrderMark || other == ByteOrderMark) {
                m_isBig = m_isBig != (other == ByteOrderMark);
                skipped = m_size;
            }
            m_isAtStart = false;
            if (skipped != 0) {
                character = None; // nothing of the text
                return skipped;
            }
        }
        if (length < static_cast<std::size_t>(m_size))
            return Short;
        character = Unit(text, m_isBig);
        if (m_hasPairs && character >= 0xD800 && character < 0xDC00) {
            if (length < 4)
                return Short;
            const char32_t low = Unit(text + 2, m_isBig);
            if (low < 0xDC00 || low > 0xDFFF)
                return Invalid;
            character = 0x10000 + ((character - 0xD800) << 10) + (low - 0xDC00);
            return 4;
        }
        return IsSurrogate(character) || character > LastCharacter ? Invalid : m_size;
    }
    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        const bool isPair = m_size == 2 && character > 0xFFFF;
        if (IsSurrogate(character) || character > LastCharacter || (isPair && !m_hasPairs))
            return Invalid;
        const bool writesMark = m_isAtStart && m_mark == Mark::ReadAndWritten;
        const int count = (writesMark ? m_size : 0) + (isPair ? 4 : m_size);
        if (size < static_cast<std::size_t>(count))
            return Short;
        m_isAtStart = false;
        if (writesMark) {
            Put(ByteOrderMark, room);
            room += m_size;
        }
        if (isPair) {
            Put(0xD800 + ((character - 0x10000) >> 10), room);
            Put(0xDC00 + ((character - 0x10000) & 0x3FF), room + 2);
        } else {
            Put(character, room);
        }
        return count;
    }
    void Reset() override {
        m_isAtStart = true;
        m_isBig = m_startsBig;
    }

private:
    char32_t Unit(const unsigned char* text, bool isBig) const {
        char32_t unit = 0;
        for (int i = 0; i < m_size; ++i)
            unit = unit << 8 | text[isBig ? i : m_size - 1 - i];
        return unit;
    }
    void Put(char32_t unit, unsigned char* room) const {
        for (int i = 0; i < m_size; ++i)
            room[m_isBig ? m_size - 1 - i : i] = static_cast<unsigned char>(unit >> 8 * i);
    }

    int m_size;
    bool m_startsBig;
    bool m_hasPairs;
    Mark m_mark;
    bool m_isBig;
    bool m_isAtStart = true;
};

/// What the system makes of a few bytes, if they are one character and come back as the same bytes: it lets bytes
/// through that a charset leaves undefined, and takes similar characters for missing ones.
class SystemPage {
public:
    explicit SystemPage(unsigned int page) : m_page(page), m_hasFlags(!TakesNoFlags(page)) {}

    char32_t Decode(const unsigned char* text, int length) const {
        const auto* const bytes = reinterpret_cast<const char*>(text);
        wchar_t units[3] = {};
        const int count = MultiByteToWideChar(m_page, m_hasFlags ? MB_ERR_INVALID_CHARS : 0, bytes, length, units, 3);
        char32_t character = None;
        if (count == 1 && !IsSurrogate(units[0]))
            character = units[0];
        else if (count == 2 && units[0] >= 0xD800 && units[0] < 0xDC00 && units[1] >= 0xDC00 && units[1] < 0xE000)
            character = 0x10000 + ((static_cast<char32_t>(units[0]) - 0xD800) << 10) + (units[1] - 0xDC00U);
        return character;
    }
    int Encode(char32_t character, unsigned char (&bytes)[8]) const {
        wchar_t units[2] = {static_cast<wchar_t>(character), 0};
        if (character > 0xFFFF) {
            units[0] = static_cast<wchar_t>(0xD800 + ((character - 0x10000) >> 10));
            units[1] = static_cast<wchar_t>(0xDC00 + ((character - 0x10000) & 0x3FF));
        }
        BOOL isLossy = FALSE;
        const int count = WideCharToMultiByte(m_page, m_hasFlags ? WC_NO_BEST_FIT_CHARS : 0, units,
                                              character > 0xFFFF ? 2 : 1, reinterpret_cast<char*>(bytes), sizeof(bytes),
                                              nullptr, m_hasFlags ? &isLossy : nullptr);
        if (count <= 0 || isLossy != FALSE)
            return 0;
        return Decode(bytes, count) == character ? count : 0;
    }
    bool ComesBack(char32_t character, const unsigned char* text, int length) const {
        unsigned char bytes[8];
        return Encode(character, bytes) == length && std::equal(text, text + length, bytes);
    }

private:
    unsigned int m_page;
    bool m_hasFlags;
};

class SingleBytes : public CharsetCodec {
public:
    using Table = std::array<char32_t, 256>;

    explicit SingleBytes(const Table& table) : m_characters(table) {
        for (std::size_t i = 0; i < m_characters.size(); ++i) {
            if (m_characters[i] != None)
                m_bytes.emplace(m_characters[i], static_cast<unsigned char>(i));
        }
    }
    int Decode(const unsigned char* text, std::size_t, char32_t& character) override {
        character = m_characters[text[0]];
        return character != None ? 1 : Invalid;
    }
    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        const auto found = m_bytes.find(character);
        if (found == m_bytes.end())
            return Invalid;
        if (size == 0)
            return Short;
        *room = found->second;
        return 1;
    }

private:
    Table m_characters;
    std::unordered_map<char32_t, unsigned char> m_bytes;
};

/// Characters of one to four bytes, each told by its bytes alone.
class ManyBytes : public CharsetCodec {
public:
    ManyBytes(unsigned int page, int longest) : m_page(page), m_longest(longest) {}

    int Decode(const unsigned char* text, std::size_t length, char32_t& character) override {
        if (text[0] < 0x80) {
            character = text[0];
            return 1;
        }
        for (int count = 1; count <= m_longest; ++count) {
            if (static_cast<std::size_t>(count) > length)
                return Short;
            character = m_page.Decode(text, count);
            if (character != None && m_page.ComesBack(character, text, count))
                return count;
        }
        return Invalid;
    }
    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        unsigned char bytes[8];
        const int count = m_page.Encode(character, bytes);
        if (count <= 0)
            return Invalid;
        if (size < static_cast<std::size_t>(count))
            return Short;
        std::copy_n(bytes, count, room);
        return count;
    }

private:
    SystemPage m_page;
    int m_longest;
};

/// EUC-JP in the bytes of its own form: the system's page 20932 has the second set of three bytes in two.
class EucJp : public CharsetCodec {
public:
    int Decode(const unsigned char* text, std::size_t length, char32_t& character) override {
        const unsigned char first = text[0];
        if (first < 0x80) {
            character = first;
            return 1;
        }
        const std::size_t count = first == 0x8F ? 3 : 2;
        if (first != 0x8E && first != 0x8F && (first < 0xA1 || first > 0xFE))
            return Invalid;
        for (std::size_t i = 1; i < count; ++i) {
            if (i == length)
                return Short;
            if (text[i] < 0xA1 || text[i] > 0xFE)
                return Invalid;
        }
        if (first == 0x8E) { // half-width katakana
            character = text[1] <= 0xDF ? 0xFF61 + (text[1] - 0xA1U) : None;
        } else {
            const unsigned char bytes[] = {first == 0x8F ? text[1] : first,
                                           first == 0x8F ? static_cast<unsigned char>(text[2] & 0x7F) : text[1]};
            character = m_page.Decode(bytes, 2);
            if (character != None && !m_page.ComesBack(character, bytes, 2))
                character = None;
        }
        return character != None ? static_cast<int>(count) : Invalid;
    }
    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        unsigned char bytes[8] = {};
        int count = 0;
        if (character < 0x80) {
            bytes[0] = static_cast<unsigned char>(character);
            count = 1;
        } else if (character >= 0xFF61 && character <= 0xFF9F) {
            bytes[0] = 0x8E;
            bytes[1] = static_cast<unsigned char>(character - 0xFF61 + 0xA1);
            count = 2;
        } else {
            count = m_page.Encode(character, bytes);
            if (count != 2)
                return Invalid;
            if (bytes[1] < 0x80) {
                bytes[2] = static_cast<unsigned char>(bytes[1] | 0x80);
                bytes[1] = bytes[0];
                bytes[0] = 0x8F;
                count = 3;
            }
        }
        if (size < static_cast<std::size_t>(count))
            return Short;
        std::copy_n(bytes, count, room);
        return count;
    }

private:
    SystemPage m_page{20932};
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

SingleBytes::Table Latin() {
    SingleBytes::Table table = {};
    for (std::size_t i = 0; i < table.size(); ++i)
        table[i] = static_cast<char32_t>(i);
    return table;
}

template <class Changes>
SingleBytes::Table LatinWith(const Changes& changes) {
    SingleBytes::Table table = Latin();
    for (const auto& [byte, character] : changes)
        table[byte] = character;
    return table;
}

std::unique_ptr<CharsetCodec> MakeOwnTable(std::string_view name) {
    const auto is = [&](std::string_view number) {
        return name == std::string("ISO-8859-").append(number) || name == std::string("ISO8859-").append(number);
    };
    if (is("10")) {
        SingleBytes::Table table = Latin();
        std::copy(Nordic10.begin(), Nordic10.end(), table.begin() + 0xA0);
        return std::make_unique<SingleBytes>(table);
    }
    if (is("11")) {
        SingleBytes::Table table = Latin();
        for (std::size_t i = 0xA1; i < table.size(); ++i)
            table[i] = (i > 0xDA && i < 0xDF) || i > 0xFB ? None : static_cast<char32_t>(i - 0xA0 + 0x0E00);
        return std::make_unique<SingleBytes>(table);
    }
    if (is("14"))
        return std::make_unique<SingleBytes>(LatinWith(Celtic14));
    if (is("16"))
        return std::make_unique<SingleBytes>(LatinWith(Romanian16));
    return nullptr;
}

std::unique_ptr<CharsetCodec> MakeUnits(std::string_view name) {
    using Mark = Units::Mark;
    static constexpr struct {
        std::string_view name;
        int size;
        bool isBig;
        bool hasPairs;
        Mark mark;
    } Forms[] = {
        {"UTF-16LE", 2, false, true, Mark::Text},
        {"UTF-16BE", 2, true, true, Mark::Text},
        {"UCS-2LE", 2, false, false, Mark::Text},
        {"UCS-2BE", 2, true, false, Mark::Text},
        {"UTF-32LE", 4, false, false, Mark::Text},
        {"UTF-32BE", 4, true, false, Mark::Text},
        {"UCS-4LE", 4, false, false, Mark::Text},
        {"UCS-4BE", 4, true, false, Mark::Text},
        {"UTF-16", 2, false, true, Mark::ReadAndWritten},
        {"UTF16", 2, false, true, Mark::ReadAndWritten},
        {"UTF-32", 4, false, false, Mark::ReadAndWritten},
        {"UTF32", 4, false, false, Mark::ReadAndWritten},
        {"UCS-2", 2, false, false, Mark::Read},
        {"UCS2", 2, false, false, Mark::Read},
        {"ISO-10646-UCS-2", 2, false, false, Mark::Read},
        {"UCS-4", 4, true, false, Mark::Read},
        {"UCS4", 4, true, false, Mark::Read},
        {"ISO-10646-UCS-4", 4, true, false, Mark::Read},
    };
    for (const auto& form : Forms) {
        if (form.name == name)
            return std::make_unique<Units>(form.size, form.isBig, form.hasPairs, form.mark);
    }
    return nullptr;
}

std::unique_ptr<CharsetCodec> MakeOfPage(unsigned int page) {
    CPINFO information = {};
    if (page == 0 || GetCPInfo(page, &information) == 0)
        return nullptr;
    if (page == 20932)
        return std::make_unique<EucJp>();
    if (page == 54936)
        return std::make_unique<ManyBytes>(page, 4);
    if (information.MaxCharSize == 2)
        return std::make_unique<ManyBytes>(page, 2);
    if (information.MaxCharSize != 1)
        return nullptr; // with states, of which the system does not tell
    const SystemPage system(page);
    SingleBytes::Table table = {};
    for (std::size_t i = 0; i < table.size(); ++i) {
        const auto byte = static_cast<unsigned char>(i);
        table[i] = system.Decode(&byte, 1);
        if (table[i] != None && !system.ComesBack(table[i], &byte, 1))
            table[i] = None;
        // The system lets through what a charset leaves undefined as controls of that number.
        const bool isIso = page >= 28591 && page <= 28605;
        if (!isIso && i >= 0x80 && i < 0xA0 && table[i] == i && page / 10 == 125)
            table[i] = None;
        if (table[i] >= 0xF700 && table[i] <= 0xF8FF && page != 10000)
            table[i] = None;
    }
    return std::make_unique<SingleBytes>(table);
}

} // namespace

std::unique_ptr<CharsetCodec> MakeCharsetCodec(std::string_view name) {
    std::string upper(name);
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    if (upper == "UTF-8" || upper == "UTF8")
        return std::make_unique<Utf8>();
    std::unique_ptr<CharsetCodec> codec = MakeUnits(upper);
    if (codec == nullptr)
        codec = MakeOwnTable(upper);
    if (codec == nullptr && CodePageOf(upper) == 20127) { // the system's own cuts off the eighth bit
        SingleBytes::Table table = Latin();
        std::fill(table.begin() + 0x80, table.end(), None);
        codec = std::make_unique<SingleBytes>(table);
    }
    return codec != nullptr ? std::move(codec) : MakeOfPage(CodePageOf(upper));
}

} // namespace Platform
