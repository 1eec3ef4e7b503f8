// Big5 with the characters of Hong Kong: the ideographs of the system's Big5 and a table for all else.

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>
#include <vector>

#include "platform/win32/iconv/big5hkscstable.h"
#include "platform/win32/iconv/codecs.h"
#include "platform/win32/iconv/systempage.h"

namespace Platform {

namespace {

constexpr unsigned int FirstLead = 0x81;
constexpr std::size_t LeadCount = 0xFE - FirstLead + 1;
constexpr std::size_t TrailCount = 63 + 94; // from 0x40, and from 0xA1

bool IsTrail(unsigned int byte) {
    return (byte >= 0x40 && byte <= 0x7E) || (byte >= 0xA1 && byte <= 0xFE);
}

std::size_t PlaceOf(unsigned int code) {
    const unsigned int trail = code & 0xFF;
    return ((code >> 8) - FirstLead) * TrailCount + trail - (trail < 0x80 ? 0x40 : 0xA1 - 63);
}

unsigned int CodeAt(std::size_t place) {
    const std::size_t trail = place % TrailCount;
    return static_cast<unsigned int>((place / TrailCount + FirstLead) << 8 | (trail + (trail < 63 ? 0x40 : 0xA1 - 63)));
}

/// Two letters that stand alone, or with one of two marks behind them in one code: all have the same first byte.
struct MarkedLetter {
    char32_t letter;
    unsigned char alone;
    unsigned char withMacron;
    unsigned char withCaron;

    unsigned char With(char32_t mark) const { return mark == Macron ? withMacron : mark == Caron ? withCaron : 0; }

    static constexpr char32_t Macron = 0x304;
    static constexpr char32_t Caron = 0x30C;
    static constexpr unsigned char Lead = 0x88;
};
constexpr MarkedLetter MarkedLetters[] = {{0xCA, 0x66, 0x62, 0x64}, {0xEA, 0xA7, 0xA3, 0xA5}};

class Table {
public:
    explicit Table(const DoubleByteTable& big5) {
        constexpr std::pair<unsigned int, unsigned int> Ideographs[] = {{0xA440, 0xC67E}, {0xC940, 0xF9D5}};
        for (const auto& [first, last] : Ideographs) {
            for (std::size_t place = PlaceOf(first); place <= PlaceOf(last); ++place) {
                const unsigned int code = CodeAt(place);
                m_characters[place] =
                    big5.Decode(static_cast<unsigned char>(code >> 8), static_cast<unsigned char>(code));
            }
        }
        const char32_t* next = std::begin(HkscsCharacters);
        for (const HkscsRun& run : HkscsRuns) {
            std::copy_n(next, run.count, m_characters.begin() + static_cast<std::ptrdiff_t>(PlaceOf(run.first)));
            next += run.count;
        }
        // Some frames stand in two places: the later ones are written.
        for (std::size_t place = m_characters.size(); place-- > 0;) {
            if (m_characters[place] != 0)
                m_codes.emplace_back(m_characters[place], CodeAt(place));
        }
        std::stable_sort(m_codes.begin(), m_codes.end(),
                         [](const auto& one, const auto& other) { return one.first < other.first; });
    }

    /// 0 for none.
    char32_t Decode(unsigned char lead, unsigned char trail) const {
        return lead >= FirstLead && lead <= 0xFE && IsTrail(trail) ? m_characters[PlaceOf(lead * 0x100U + trail)] : 0;
    }
    unsigned int Encode(char32_t character) const {
        const auto found = std::lower_bound(m_codes.begin(), m_codes.end(), std::make_pair(character, 0U));
        return found != m_codes.end() && found->first == character ? found->second : 0;
    }

private:
    std::array<char32_t, LeadCount* TrailCount> m_characters = {};
    std::vector<std::pair<char32_t, unsigned int>> m_codes;
};

class Big5Hkscs : public CharsetCodec {
public:
    explicit Big5Hkscs(const Table& table) : m_table(table) {}

    // A letter with its mark is read in two steps, a byte each.
    int Decode(const unsigned char* text, std::size_t length, char32_t& character) override {
        const unsigned char lead = text[0];
        m_nextMark = 0;
        character = m_mark;
        if (m_mark != 0)
            return 1;
        character = lead;
        if (lead <= 0x80)
            return 1;
        if (length < 2)
            return Short;
        for (const MarkedLetter& each : MarkedLetters) {
            for (const char32_t mark : {MarkedLetter::Macron, MarkedLetter::Caron}) {
                if (lead == MarkedLetter::Lead && text[1] == each.With(mark)) {
                    m_nextMark = mark;
                    character = each.letter;
                    return 1;
                }
            }
        }
        character = m_table.Decode(lead, text[1]);
        return character != 0 ? 2 : Invalid;
    }
    void Accept() override { m_mark = m_nextMark; }

    // Of a letter that may have a mark the first byte is written, and the second when what follows is known.
    int Encode(char32_t character, unsigned char* room, std::size_t size) override {
        unsigned char bytes[3] = {};
        std::size_t count = 0;
        if (m_letter != nullptr) {
            const unsigned char withMark = m_letter->With(character);
            bytes[count++] = withMark != 0 ? withMark : m_letter->alone;
            if (withMark != 0)
                return PutAndHold(bytes, count, nullptr, room, size);
        }
        for (const MarkedLetter& each : MarkedLetters) {
            if (each.letter == character) {
                bytes[count++] = MarkedLetter::Lead;
                return PutAndHold(bytes, count, &each, room, size);
            }
        }
        const unsigned int code = character <= 0x80 ? character : m_table.Encode(character);
        if (code == 0 && character != 0)
            return Invalid;
        if (code > 0xFF)
            bytes[count++] = static_cast<unsigned char>(code >> 8);
        bytes[count++] = static_cast<unsigned char>(code);
        return PutAndHold(bytes, count, nullptr, room, size);
    }
    int Finish(unsigned char* room, std::size_t size) override {
        if (m_letter == nullptr)
            return 0;
        if (Put(&m_letter->alone, 1, room, size) == Short)
            return Invalid;
        m_letter = nullptr;
        return 1;
    }
    int AsciiUnit() const override { return m_letter == nullptr && m_mark == 0 ? 1 : 0; }
    void Reset() override {
        m_mark = 0;
        m_letter = nullptr;
    }

private:
    int PutAndHold(const unsigned char* bytes, std::size_t count, const MarkedLetter* letter, unsigned char* room,
                   std::size_t size) {
        const int written = Put(bytes, count, room, size);
        if (written != Short)
            m_letter = letter;
        return written;
    }

    const Table& m_table;
    char32_t m_mark = 0; // of the code that was read by half
    char32_t m_nextMark = 0;
    const MarkedLetter* m_letter = nullptr; // that was written by half
};

} // namespace

std::unique_ptr<CharsetCodec> MakeBig5Hkscs(std::string_view name) {
    if (name != "BIG5-HKSCS" && name != "BIG5HKSCS" && name != "CP951")
        return nullptr;
    const DoubleByteTable* const big5 = DoubleByteTable::Of(950);
    if (big5 == nullptr)
        return nullptr;
    static const Table& s_table = *new Table(*big5); // outlives whoever still converts while the program ends
    return std::make_unique<Big5Hkscs>(s_table);
}

} // namespace Platform
