// This library's own converter of text, for systems that have none of its kind, against what other programs make of the
// same characters.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iconv.h>
#include <iterator>
#include <random>
#include <string>
#include <tuple>

#include "base/keldsystem.h"

namespace {

using namespace KELD;
using namespace std::string_literals;

constexpr std::size_t Failed = static_cast<std::size_t>(-1);
constexpr char32_t LastCharacter = 0x10FFFF;

std::string Unit(char32_t character) {
    std::string unit;
    for (int shift = 0; shift < 32; shift += 8)
        unit += static_cast<char>(character >> shift & 0xFF);
    return unit;
}

class Conversion {
public:
    Conversion(const char* to, const char* from) : m_handle(iconv_open(to, from)) {}
    ~Conversion() { iconv_close(m_handle); }
    Conversion(const Conversion&) = delete;
    Conversion& operator=(const Conversion&) = delete;

    /// A whole text; "?" for one that cannot be converted.
    std::string operator()(const std::string& text) {
        return InPieces(
            text, [&] { return text.size(); }, [&] { return 64 + text.size() * 8; });
    }
    /// The same in pieces of the given sizes, into rooms of the given sizes.
    template <class Piece, class Room>
    std::string InPieces(std::string text, Piece piece, Room room) {
        std::string result;
        for (std::size_t at = 0, ready = 0;;) {
            const bool isEnd = at == text.size();
            ready = std::min(text.size(), std::max(ready, at + piece()));
            std::string space(room(), '\0');
            char* in = text.data() + at;
            std::size_t inLeft = ready - at;
            char* out = space.data();
            std::size_t outLeft = space.size();
            errno = 0;
            const std::size_t converted = iconv(m_handle, isEnd ? nullptr : &in, &inLeft, &out, &outLeft);
            const int error = errno;
            result.append(space, 0, space.size() - outLeft);
            at = ready - inLeft;
            if (isEnd && converted != Failed)
                return result;
            const bool isPart = error == EINVAL && ready < text.size();
            if (isPart)
                ready = std::min(text.size(), ready + 1);
            if (converted == Failed && !isPart && error != E2BIG) {
                iconv(m_handle, nullptr, nullptr, nullptr, nullptr);
                return "?";
            }
        }
    }

private:
    iconv_t m_handle;
};

struct Charset {
    const char* name;
    std::size_t count;    // of the characters that it has
    std::uint32_t digest; // of their bytes
};

} // namespace

// Every character of the basic plane and each 61st of the others. Digests of what other programs make of them: glibc
// 2.36, for KS X 1001 without U+327E and the tags that it drops; Python 3.11 for HZ, and for the pairs
// of a letter and a tone that Unicode 14 composes in windows-1258, of which it has the letters too, and in TCVN.
TEST(Converter, HasTheCharactersOfOtherConverters) {
    const Charset charsets[] = {
        {"GB18030", 80654, 0xA0715E7C},    {"WINDOWS-1258", 421, 0x5F990797}, {"ISO-2022-JP", 7009, 0x906EEC56},
        {"ISO-2022-KR", 8354, 0x146DD721}, {"HZ", 7573, 0xB0570125},          {"UTF-7", 80678, 0xCB9568B0},
        {"UTF-7-IMAP", 80678, 0x33C30224}, {"TCVN5712-1", 316, 0x93044438},   {"BIG5-HKSCS", 16898, 0xC298C9BA},
    };
    for (const Charset& charset : charsets) {
        SCOPED_TRACE(charset.name);
        Conversion encode(charset.name, "UTF-32LE");
        Conversion decode("UTF-32LE", charset.name);
        std::size_t count = 0;
        std::uint32_t digest = 0x811C9DC5;
        for (char32_t character = 0; character <= LastCharacter; character += character < 0x10000 ? 1 : 61) {
            if (character >= 0xD800 && character < 0xE000)
                continue;
            const std::string unit = Unit(character);
            std::string bytes = encode(unit);
            const bool isLost = bytes == "?" && character != '?';
            count += isLost ? 0 : 1;
            for (const char byte : isLost ? "\xFF"s : bytes + '\xFF')
                digest = (digest ^ static_cast<unsigned char>(byte)) * 0x01000193;
            if (!isLost && character >= ' ') { // controls may be a part of the charset's own
                ASSERT_EQ(decode(bytes), unit) << std::hex << static_cast<std::uint32_t>(character);
            }
        }
        EXPECT_EQ(count, charset.count);
        EXPECT_EQ(digest, charset.digest);
    }
}

// Numbers, from one to another, of those of one byte that systems lack or have otherwise. The digest is that of
// glibc 2.36: the character of each byte, and the byte that it makes of that, where that has the same character.
TEST(Converter, HasTablesOfOneByte) {
    constexpr int Numbers[][2] = {
        {38, 38},       {256, 256},     {770, 774},     {803, 803},     {851, 851},     {856, 856},     {858, 858},
        {868, 868},     {870, 870},     {901, 902},     {904, 904},     {918, 918},     {921, 922},     {1004, 1004},
        {1008, 1008},   {1046, 1047},   {1097, 1097},   {1112, 1112},   {1122, 1125},   {1129, 1130},   {1132, 1133},
        {1137, 1137},   {1140, 1149},   {1153, 1158},   {1160, 1164},   {1166, 1166},   {4517, 4517},   {4899, 4899},
        {4909, 4909},   {4971, 4971},   {5347, 5347},   {9030, 9030},   {9066, 9066},   {12712, 12712}, {16804, 16804},
        {20106, 20108}, {20273, 20275}, {20277, 20278}, {20280, 20281}, {20284, 20285}, {20290, 20290}, {20297, 20297},
        {20420, 20420}, {20423, 20424}, {20871, 20871}, {20880, 20880}, {20905, 20905}, {21025, 21025}, {21866, 21866},
        {28597, 28598}, {28600, 28601}, {28604, 28604}, {28606, 28606}, {70020, 70021}, {70023, 70023}, {70025, 70031},
        {70040, 70068}, {70070, 70092}, {70094, 70104}, {70106, 70113}, {70115, 70115}};
    int count = 0;
    std::uint32_t digest = 0x811C9DC5;
    const auto add = [&](const std::string& bytes) {
        for (const char byte : bytes)
            digest = (digest ^ static_cast<unsigned char>(byte)) * 0x01000193;
    };
    for (const auto& [first, last] : Numbers) {
        for (int number = first; number <= last; ++number) {
            const std::string name(KeldSystem::GetCharsetNameView(static_cast<KELDCharset::Charset>(number)));
            Conversion encode(name.c_str(), "UTF-32LE");
            Conversion decode("UTF-32LE", name.c_str());
            for (int byte = 0; byte < 256; ++byte) {
                const std::string bytes(1, static_cast<char>(byte));
                const std::string unit = decode(bytes);
                add(unit != "?" ? unit + encode(unit) : "\xFF");
                count += unit != "?" ? 1 : 0;
            }
        }
    }
    EXPECT_EQ(count, 36523);
    EXPECT_EQ(digest, 0x3F4F3268);
}

// Characters that a charset has in two places are read from both, and written to the one that all write. The digest is
// that of Python 3.11.
TEST(Converter, ReadsCharactersThatStandTwice) {
    Conversion encode("WINDOWS-31J", "UTF-32LE");
    Conversion decode("UTF-32LE", "WINDOWS-31J");
    int count = 0;
    int others = 0;
    std::uint32_t digest = 0x811C9DC5;
    for (int code = 0x8000; code <= 0xFFFF; ++code) {
        const std::string bytes = {static_cast<char>(code >> 8), static_cast<char>(code)};
        const std::string unit = decode(bytes);
        const bool isOne = unit.size() == 4;
        count += isOne ? 1 : 0;
        others += isOne && encode(unit) != bytes ? 1 : 0;
        for (const char byte : isOne ? unit : "\xFF"s)
            digest = (digest ^ static_cast<unsigned char>(byte)) * 0x01000193;
    }
    EXPECT_EQ(count, 9604);
    EXPECT_EQ(others, 398);
    EXPECT_EQ(digest, 0xE78D605C);
    EXPECT_EQ(encode(decode("\x87\x90\xED\x95\xFA\x54")), "\x81\xE0\xFA\xB1\x81\xCA");
    EXPECT_EQ(Conversion("UTF-8", "BIG5")("\xA2\xCC\xF9\xFA"), "\xE5\x8D\x81\xE2\x95\xAD");
}

// Those of two bytes come back above; so no other code of four has a character.
TEST(Converter, NumbersTheRestOfTheBasicPlane) {
    Conversion encode("GB18030", "UTF-32LE");
    Conversion decode("UTF-32LE", "GB18030");
    int count = 0;
    for (int number = 0; number < 50400; ++number) {
        const std::string bytes = {static_cast<char>(0x81 + number / 12600),
                                   static_cast<char>('0' + number / 1260 % 10),
                                   static_cast<char>(0x81 + number / 10 % 126), static_cast<char>('0' + number % 10)};
        const std::string unit = decode(bytes);
        if (unit == "?")
            continue;
        ASSERT_EQ(encode(unit), bytes);
        ++count;
    }
    EXPECT_EQ(count, 39402);
    for (const char* bytes : {"\x80", "\xFF", "\x81\x7F", "\x81\xFF", "\x81\x30\x80\x30", "\x81\x30\x81\x3A",
                              "\x81\x30\x81", "\xE3\x32\x9A\x36", "\xFE\x39\xFE\x39"})
        EXPECT_EQ(decode(bytes), "?");
}

// What came before, and no more, is kept between calls, however small the pieces are.
TEST(Converter, TakesTextsInPieces) {
    std::mt19937 random(7);
    const auto upTo = [&](std::size_t limit) { return random() % (limit + 1); };
    constexpr const char* Letters[] = {"a",
                                       "Z",
                                       "+",
                                       "-",
                                       "~",
                                       "\n",
                                       "\xE4\xB8\xAD",
                                       "\xE6\x96\x87",
                                       "\xEA\xB0\x80",
                                       "\xC2\xA5",
                                       "\xCE\xB1",
                                       "\xE1\xBA\xBF",
                                       "\xC4\x83",
                                       "\xF0\x9F\x98\x80",
                                       "\xC2\xB2",
                                       "\xC3\x8A",
                                       "\xC3\xAA",
                                       "\xCC\x84",
                                       "\xCC\x8C",
                                       "\xE1\xBA\xBE"};
    int converted = 0;
    for (const char* charset : {"GB18030", "WINDOWS-1258", "ISO-2022-JP", "ISO-2022-JP-2", "ISO-2022-KR", "HZ", "UTF-7",
                                "UTF-7-IMAP", "EUC-JP", "GBK", "UTF-16", "TCVN", "BIG5-HKSCS"}) {
        SCOPED_TRACE(charset);
        Conversion encode(charset, "UTF-8");
        Conversion decode("UTF-8", charset);
        std::string known;
        for (int round = 0; round < 60; ++round) {
            std::string text;
            for (std::size_t left = upTo(40); left != 0; --left) {
                const char* const letter = Letters[upTo(std::size(Letters) - 1)];
                if (encode(letter) != "?")
                    text += letter;
            }
            const auto piece = [&] { return 1 + upTo(4); };
            const auto room = [&] { return 1 + upTo(9); }; // often too little
            const std::string whole = encode(text);
            ASSERT_EQ(encode.InPieces(text, piece, room), whole);
            ASSERT_EQ(decode(whole), text);
            ASSERT_EQ(decode.InPieces(whole, piece, room), text);
            converted += text.size() > 20 ? 1 : 0;
        }
    }
    EXPECT_GT(converted, 300);
}

// Texts as their standards have them, and what is none.
TEST(Converter, ReadsWhatOthersWrite) {
    const std::tuple<const char*, std::string, const char*> cases[] = {
        {"UTF-7", "Hi Mom -+Jjo--!", "Hi Mom -\xE2\x98\xBA-!"},
        {"UTF-7", "A+ImIDkQ.", "A\xE2\x89\xA2\xCE\x91."},
        {"UTF-7", "a+-b+AGE", "a+ba"},
        {"UTF-7-IMAP", "~peter/mail/&U,BTFw-/&ZeVnLIqe-",
         "~peter/mail/\xE5\x8F\xB0\xE5\x8C\x97/\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E"},
        {"HZ", "~{<:Ky2;S{#,NpJ)l6HK!#~}Bye.~\n~~",
         "\xE5\xB7\xB1\xE6\x89\x80\xE4\xB8\x8D\xE6\xAC\xB2\xEF\xBC\x8C\xE5\x8B\xBF\xE6\x96\xBD\xE6\x96\xBC\xE4\xBA\xBA"
         "\xE3\x80\x82"
         "Bye.~"},
        {"ISO-2022-JP", "\x1B$@F|\x1B$B\nK\\\x1B(J\\", "\xE6\x97\xA5\n\xE6\x9C\xAC\xC2\xA5"},
        {"ISO-2022-JP-2", "\x1B.A\x1BNi\x1B$A0!\x1B$(C0!\x1B$(D0!\x1B(I1",
         "\xC3\xA9\xE5\x95\x8A\xEA\xB0\x80\xE4\xB8\x82\xEF\xBD\xB1"},
        {"ISO-2022-KR",
         "\x0E"
         "0!\x0F"
         "A",
         "\xEA\xB0\x80"
         "A"},
        {"WINDOWS-1258",
         "a\xF2\xEC\xE2\xEC"
         "x\xEC",
         "\xE1\xBA\xA1\xCC\x81\xE1\xBA\xA5x\xCC\x81"},
        {"TCVN",
         "a\xB4\xB3\xA9\xB3"
         "x\xB3\x01",
         "\xE1\xBA\xA1\xCC\x81\xE1\xBA\xA5x\xCC\x81\xC3\x9A"},
        {"UTF-7", "+ZeVn ", "?"},
        {"UTF-7", "+2D0-", "?"},
        {"UTF-7", "+3QA-", "?"},
        {"UTF-7", "\\", "?"},
        {"UTF-7", "+ZeVnLIqeA-", "?"},
        {"UTF-7-IMAP", "&ZeVnLIqe a", "?"},
        {"UTF-7", "+", "?"},
        {"ISO-2022-JP", "\x1B$BF", "?"},
        {"ISO-2022-JP", "\x1B$BF ", "?"},
        {"ISO-2022-JP", "\x1B(", "?"},
        {"ISO-2022-JP", "\x80", "?"},
        {"ISO-2022-JP-2", "\x1B.A\n\x1BNi", "?"},
        {"ISO-2022-KR",
         "\x0E"
         "0!\n",
         "?"},
        {"WINDOWS-1258", "\x81", "?"},
        {"EUC-JP", "\x8E\xE0", "?"},
        {"BIG5-HKSCS", "\x88\x62\x88\xA5\x88\x66\x88\xA7\xA2\x7E",
         "\xC3\x8A\xCC\x84\xC3\xAA\xCC\x8C\xC3\x8A\xC3\xAA\xE2\x95\xAD"},
        {"BIG5-HKSCS", "\x88", "?"},
        {"BIG5-HKSCS", "\x88\x39", "?"},
    };
    for (const auto& [charset, bytes, text] : cases)
        EXPECT_EQ(Conversion("UTF-8", charset)(bytes), text) << charset;
    EXPECT_EQ(Conversion("ISO-2022-JP-2", "UTF-8")("\xC2\xB2\xC2\xB3\n\xC2\xB2"), "\x1B.A\x1BN2\x1BN3\n\x1B.A\x1BN2");
}
