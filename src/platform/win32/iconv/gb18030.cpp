// GB18030: the system's page 936 and what differs from it, and all of Unicode in four bytes. The system's own page
// 54936 is not everywhere, and stands at another edition.

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <memory>
#include <vector>

#include "platform/win32/iconv/codecs.h"
#include "platform/win32/iconv/systempage.h"

namespace Platform {

namespace {

struct Change {
    std::uint16_t bytes;
    char32_t character;
};

// What page 936 leaves to private use.
constexpr Change Additions[] = {{0xA2E3, 0x20AC}, {0xA8BF, 0x01F9}, {0xA989, 0x303E}, {0xA98A, 0x2FF0},
                                {0xA98B, 0x2FF1}, {0xA98C, 0x2FF2}, {0xA98D, 0x2FF3}, {0xA98E, 0x2FF4},
                                {0xA98F, 0x2FF5}, {0xA990, 0x2FF6}, {0xA991, 0x2FF7}, {0xA992, 0x2FF8},
                                {0xA993, 0x2FF9}, {0xA994, 0x2FFA}, {0xA995, 0x2FFB}};

// The same from 0xFE50 on; 0 for what stayed private at first.
constexpr unsigned int FirstIdeograph = 0xFE50;
constexpr char16_t Ideographs[] = {
    0x2E81, 0,      0,      0,      0x2E84, 0x3473, 0x3447, 0x2E88, 0x2E8B, 0,      0x359E, 0x361A, 0x360E, 0x2E8C,
    0x2E97, 0x396E, 0x3918, 0,      0x39CF, 0x39DF, 0x3A73, 0x39D0, 0,      0,      0x3B4E, 0x3C6E, 0x3CE0, 0x2EA7,
    0,      0,      0x2EAA, 0x4056, 0x415F, 0x2EAE, 0x4337, 0x2EB3, 0x2EB6, 0x2EB7, 0,      0x43B1, 0x43AC, 0x2EBB,
    0x43DD, 0x44D6, 0x4661, 0x464C, 0,      0x4723, 0x4729, 0x477C, 0x478D, 0x2ECA, 0x4947, 0x497A, 0x497D, 0x4982,
    0x4983, 0x4985, 0x4986, 0x499F, 0x499B, 0x49B7, 0x49B6, 0,      0,      0x4CA3, 0x4C9F, 0x4CA0, 0x4CA1, 0x4C77,
    0x4CA2, 0x4D13, 0x4D14, 0x4D15, 0x4D16, 0x4D17, 0x4D18, 0x4D19, 0x4DAE};

// What has characters of its own by now. The codes of four bytes were numbered before that.
constexpr Change LaterAdditions[] = {
    {0xA6D9, 0xFE10},  {0xA6DA, 0xFE12},  {0xA6DB, 0xFE11},  {0xA6DC, 0xFE13},  {0xA6DD, 0xFE14},
    {0xA6DE, 0xFE15},  {0xA6DF, 0xFE16},  {0xA6EC, 0xFE17},  {0xA6ED, 0xFE18},  {0xA6F3, 0xFE19},
    {0xA8BC, 0x1E3F},  {0xFE51, 0x20087}, {0xFE52, 0x20089}, {0xFE53, 0x200CC}, {0xFE59, 0x9FB4},
    {0xFE61, 0x9FB5},  {0xFE66, 0x9FB6},  {0xFE67, 0x9FB7},  {0xFE6C, 0x215D7}, {0xFE6D, 0x9FB8},
    {0xFE76, 0x2298F}, {0xFE7E, 0x9FB9},  {0xFE90, 0x9FBA},  {0xFE91, 0x241FE}, {0xFEA0, 0x9FBB}};

// U+1E3F and its private character have changed places.
constexpr char32_t Exchanged = 0x1E3F;
constexpr char32_t ExchangedFor = 0xE7C7;

constexpr std::size_t Rows = 126;
constexpr std::size_t Columns = 190;
constexpr unsigned int SupplementStart = 189000; // the number of 90 30 81 30

bool IsSecondByte(unsigned char byte) {
    return byte >= 0x40 && byte != 0x7F && byte != 0xFF;
}

std::size_t PlaceOf(unsigned int first, unsigned int second) {
    return (first - 0x81) * Columns + second - 0x40 - (second > 0x7F ? 1 : 0);
}

bool IsPrivate(char32_t character) {
    return character >= 0xE000 && character <= 0xF8FF;
}

class Table {
public:
    explicit Table(const DoubleByteTable& gbk) {
        FillFrom(gbk);
        for (const Change& addition : Additions)
            m_characters[PlaceOf(addition.bytes >> 8, addition.bytes & 0xFF)] = addition.character;
        std::size_t place = PlaceOf(FirstIdeograph >> 8, FirstIdeograph & 0xFF);
        for (const char16_t ideograph : Ideographs) {
            if (ideograph != 0)
                m_characters[place] = ideograph;
            ++place;
        }
        NumberTheRest();
        for (const Change& addition : LaterAdditions)
            m_characters[PlaceOf(addition.bytes >> 8, addition.bytes & 0xFF)] = addition.character;
        for (unsigned int first = 0x81; first < 0xFF; ++first) {
            for (unsigned int second = 0x40; second < 0xFF; ++second) {
                const char32_t character = m_characters[PlaceOf(first, second)];
                if (second != 0x7F && character <= 0xFFFF)
                    m_bytes[character] = static_cast<std::uint16_t>(first << 8 | second);
            }
        }
    }

    char32_t Decode(unsigned int first, unsigned int second) const { return m_characters[PlaceOf(first, second)]; }

    /// The two bytes of a character; 0 for none.
    unsigned int Encode(char32_t character) const {
        if (character <= 0xFFFF)
            return m_bytes[character];
        for (const Change& addition : LaterAdditions) {
            if (addition.character == character)
                return addition.bytes;
        }
        return 0;
    }

    /// The character of the basic plane with that number among those of four bytes, or NoCharacter.
    char32_t OfNumber(unsigned int number) const {
        const auto after = std::upper_bound(m_runs.begin(), m_runs.end(), number,
                                            [](unsigned int value, const Run& run) { return value < run.number; });
        const Run& run = *(after - 1);
        if (number - run.number >= run.count)
            return NoCharacter;
        const char32_t character = run.first + (number - run.number);
        return character == Exchanged ? ExchangedFor : m_bytes[character] == 0 ? character : NoCharacter;
    }
    /// For a character that has no two bytes.
    bool NumberOf(char32_t character, unsigned int& number) const {
        if (character == ExchangedFor)
            character = Exchanged;
        const auto after = std::upper_bound(m_runs.begin(), m_runs.end(), character,
                                            [](char32_t value, const Run& run) { return value < run.first; });
        if (after == m_runs.begin() || character - (after - 1)->first >= (after - 1)->count)
            return false;
        number = (after - 1)->number + (character - (after - 1)->first);
        return true;
    }

private:
    struct Run { // of characters whose numbers follow each other
        char32_t first;
        unsigned int number;
        unsigned int count;
    };

    // Three areas are the user's; what else is undefined stands for private characters in order.
    void FillFrom(const DoubleByteTable& gbk) {
        char32_t undefined = 0xE766;
        for (unsigned int first = 0x81; first < 0xFF; ++first) {
            for (unsigned int second = 0x40; second < 0xFF; ++second) {
                if (second == 0x7F)
                    continue;
                char32_t& character = m_characters[PlaceOf(first, second)];
                if (first >= 0xAA && first <= 0xAF && second >= 0xA1) {
                    character = 0xE000 + (first - 0xAA) * 94 + second - 0xA1;
                } else if (first >= 0xF8 && second >= 0xA1) {
                    character = 0xE234 + (first - 0xF8) * 94 + second - 0xA1;
                } else if (first >= 0xA1 && first <= 0xA7 && second < 0xA1) {
                    character = 0xE4C6 + (first - 0xA1) * 96 + second - 0x40 - (second > 0x7F ? 1 : 0);
                } else {
                    character = gbk.Decode(static_cast<unsigned char>(first), static_cast<unsigned char>(second));
                    if (character == 0 || IsPrivate(character))
                        character = undefined++;
                }
            }
        }
    }

    // What has no two bytes is numbered in Unicode's order.
    void NumberTheRest() {
        std::vector<bool> isTaken(0x10000);
        for (const char32_t character : m_characters)
            isTaken[character] = true;
        unsigned int number = 0;
        bool isInRun = false;
        for (char32_t character = 0x80; character <= 0xFFFF; ++character) {
            if (isTaken[character] || (character >= 0xD800 && character <= 0xDFFF)) {
                isInRun = false;
                continue;
            }
            if (!isInRun)
                m_runs.push_back({character, number, 0});
            isInRun = true;
            ++m_runs.back().count;
            ++number;
        }
    }

    std::array<char32_t, Rows* Columns> m_characters = {};
    std::array<std::uint16_t, 0x10000> m_bytes = {};
    std::vector<Run> m_runs;
};

class Gb18030 : public CharsetCodec {
public:
    explicit Gb18030(const Table& table) : m_table(table) {}

    int Decode(const unsigned char* text, std::size_t length, char32_t& character) override {
        character = text[0];
        if (character < 0x80)
            return 1;
        if (!IsLead(text[0]))
            return Invalid;
        if (length < 2)
            return Short;
        if (IsSecondByte(text[1])) {
            character = m_table.Decode(text[0], text[1]);
            return 2;
        }
        for (std::size_t i = 1; i < 4; ++i) {
            if (i == length)
                return Short;
            if (i == 2 ? !IsLead(text[i]) : text[i] < '0' || text[i] > '9')
                return Invalid;
        }
        const unsigned int number =
            ((text[0] - 0x81U) * 10 + text[1] - '0') * 1260 + (text[2] - 0x81U) * 10 + text[3] - '0';
        character = number < SupplementStart ? m_table.OfNumber(number) : number - SupplementStart + 0x10000;
        return character <= LastCharacter ? 4 : Invalid;
    }
    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        unsigned char bytes[4] = {static_cast<unsigned char>(character)};
        if (character < 0x80)
            return Put(bytes, 1, room, size);
        if (const unsigned int code = m_table.Encode(character); code != 0) {
            bytes[0] = static_cast<unsigned char>(code >> 8);
            bytes[1] = static_cast<unsigned char>(code);
            return Put(bytes, 2, room, size);
        }
        unsigned int number = character - 0x10000 + SupplementStart;
        if (character > LastCharacter || (character <= 0xFFFF && !m_table.NumberOf(character, number)))
            return Invalid;
        bytes[0] = static_cast<unsigned char>(0x81 + number / 12600);
        bytes[1] = static_cast<unsigned char>('0' + number / 1260 % 10);
        bytes[2] = static_cast<unsigned char>(0x81 + number / 10 % 126);
        bytes[3] = static_cast<unsigned char>('0' + number % 10);
        return Put(bytes, 4, room, size);
    }
    int AsciiUnit() const override { return 1; }

private:
    static bool IsLead(unsigned char byte) { return byte >= 0x81 && byte <= 0xFE; }

    const Table& m_table;
};

} // namespace

std::unique_ptr<CharsetCodec> MakeGb18030() {
    const DoubleByteTable* const gbk = DoubleByteTable::Of(936);
    if (gbk == nullptr)
        return nullptr;
    static const Table& s_table = *new Table(*gbk); // outlives whoever still converts while the program ends
    return std::make_unique<Gb18030>(s_table);
}

} // namespace Platform
