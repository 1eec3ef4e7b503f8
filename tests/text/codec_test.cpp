// Conversion between charsets, by the codec itself and by the texts that it serves.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <iconv.h>
#include <random>
#include <tuple>
#include <utility>

#include "stream/qzbytearray.h"
#include "support.h"
#include "toolkit/qzhashcode.h"
#include "toolkit/qzstringex.h"
#include "toolkit/qzstringucs2le.h"
#include "toolkit/qzstringutf8.h"
#include "toolkit/qzstringw.h"
#include "toolkit/qztextcodec.h"

using namespace Qzc;
using namespace std::string_literals;

namespace {

using Charset = KELDCharset::Charset;

constexpr Charset WideCharset = sizeof(wchar_t) == 2 ? KELDCharset::UCS2LE : KELDCharset::UCS4LE;
// GNU libiconv, which may be taken where wide text has two bytes, knows fewer of the table's names than the others.
constexpr std::size_t LeastCharsets = sizeof(wchar_t) == 2 ? 90 : 230;

const char Zhongwen[] = "\xE4\xB8\xAD\xE6\x96\x87"; // U+4E2D U+6587, "Chinese"

std::string Name(Charset charset) {
    return std::string(QzTextCodec::GetCharsetName(charset).View());
}

// iconv's second parameter is `char**` in one system's header and `const char**` in another's.
template <class In>
std::size_t CallIconv(std::size_t (*convert)(iconv_t, In**, std::size_t*, char**, std::size_t*), iconv_t handle,
                      std::string& text, std::size_t& left, char*& out, std::size_t& room) {
    In* in = text.data();
    return convert(handle, &in, &left, &out, &room);
}

// What iconv itself makes of a text in one call and the closing one; false, and nothing, when it leaves any of it.
bool ByIconv(Charset to, Charset from, std::string text, std::string& result) {
    const iconv_t handle = Name(to).empty() || Name(from).empty() ? reinterpret_cast<iconv_t>(-1)
                                                                  : iconv_open(Name(to).c_str(), Name(from).c_str());
    if (handle == reinterpret_cast<iconv_t>(-1))
        return false;
    std::string room(text.size() * 5, '\0');
    char* out = room.data();
    std::size_t inLeft = text.size();
    std::size_t outLeft = room.size();
    CallIconv(iconv, handle, text, inLeft, out, outLeft);
    const bool whole = text.empty() ||
                       (inLeft == 0 && iconv(handle, nullptr, nullptr, &out, &outLeft) != static_cast<std::size_t>(-1));
    iconv_close(handle);
    result = room.substr(0, whole ? room.size() - outLeft : 0);
    return whole;
}

// Every number that has a name which this system's iconv knows.
const std::vector<Charset>& Table() {
    static const std::vector<Charset> s_table = [] {
        std::vector<Charset> table;
        for (int number = 0; number < 70200; ++number) {
            const auto charset = static_cast<Charset>(number);
            std::string nothing;
            if (ByIconv(charset, KELDCharset::UTF8, "", nothing) && ByIconv(KELDCharset::UTF8, charset, "", nothing))
                table.push_back(charset);
        }
        return table;
    }();
    return s_table;
}

template <class Char>
std::basic_string<Char> Units(const std::string& bytes) {
    std::basic_string<Char> units(bytes.size() / sizeof(Char), Char());
    std::memcpy(units.data(), bytes.data(), units.size() * sizeof(Char));
    return units;
}

// The scheme once more, over the units themselves.
int HashOf(const std::u16string& units) {
    std::uint32_t lanes[] = {0x15051505, 0x15051505};
    const auto step = [](std::uint32_t& h, std::uint32_t unit) {
        h = ((h << 5) + h + static_cast<std::uint32_t>(static_cast<std::int32_t>(h) >> 27)) ^ unit;
    };
    if (units.empty())
        step(lanes[0], 0);
    for (std::size_t i = 0; i < units.size(); ++i) {
        step(lanes[0], units[i]);
        if (i != 0)
            step(lanes[1], units[i]);
    }
    return static_cast<int>(lanes[0] + lanes[1] * 0x5D588B65);
}

void CheckCodec(Charset to, Charset from, const std::string& text, bool whole, const std::string& expected) {
    KeldMBString result("old");
    ASSERT_EQ(QzTextCodec(to, from).Convert(result, KeldMBString(std::string_view(text))), whole);
    ASSERT_TRUE(result.View() == (whole ? expected : "old"));
    // The same into raw memory.
    std::string raw(text.size() * 5 + 1, '!');
    int length = -7;
    ASSERT_EQ(QzTextCodec(to, from).Convert(reinterpret_cast<unsigned char*>(raw.data()), 0, length,
                                            reinterpret_cast<const unsigned char*>(text.data()),
                                            static_cast<int>(text.size())),
              whole);
    ASSERT_EQ(length, whole ? static_cast<int>(expected.size()) : -7);
    ASSERT_TRUE(raw.compare(0, expected.size(), expected) == 0 && raw.back() == '!');
}

// The texts that hold 250, 251 or 253 and are made of, or make, text of another charset. `expected` is empty when it
// cannot be converted.
void CheckTexts(Charset to, Charset from, const std::string& bytes, const std::string& expected) {
    const KeldMBString text{std::string_view(bytes)};
    if (to == KELDCharset::UTF8) {
        const QzStringUTF8 utf8(text, from);
        ASSERT_TRUE(std::string(utf8.Cstr(), static_cast<std::size_t>(utf8.GetLength())) ==
                    expected.substr(0, expected.find('\0')));
    }
    const auto trimmed = [](const std::string& converted) {
        return converted.substr(0, converted.find_last_not_of('\0') + 1);
    };
    const bool isCut = from != KELDCharset::UTF8 || text.Find('\0') >= 0;
    ASSERT_TRUE(isCut || QzStringUTF8(text, from).ToString(to).View() == trimmed(expected));
    if (to == KELDCharset::UCS2LE) {
        const QzStringUCS2LE units(text, from);
        ASSERT_TRUE(std::u16string(units.GetChars().begin(), units.GetChars().end()) ==
                    Units<char16_t>(expected + "\0\0"s));
        const CurrentCharset current(from);
        if (KeldSystem::GetCurCharset() == from) {
            KeldMBString another = text; // whatever the text says that it is
            another.SetCharset(KELDCharset::Thai);
            ASSERT_EQ(QzHashCode::StringToHashCode(another), HashOf(Units<char16_t>(expected)));
        }
    }
    if (from == KELDCharset::UCS2LE) { // with the terminator
        std::string terminated;
        ByIconv(to, from, bytes.substr(0, bytes.size() / 2 * 2) + "\0\0"s, terminated);
        ASSERT_EQ(QzStringUCS2LE(text, from).ToString(to).View(), trimmed(terminated));
    }
    if (to == WideCharset) {
        QzStringW wide(L"old");
        wide.FromString(text, from);
        ASSERT_TRUE(wide == Units<wchar_t>(expected).c_str());
    }
    const bool isWide = from == WideCharset && bytes.size() % sizeof(wchar_t) == 0;
    ASSERT_TRUE(!isWide || QzStringW(Units<wchar_t>(bytes)).ToString(to).View() == expected);
}

} // namespace

// Random texts with stretches of ASCII, valid and not, short and long, between every charset and the wide ones: the
// same as iconv's own single call.
TEST(Codec, ConvertsAsIconvDoes) {
    std::mt19937 random(3);
    const auto upTo = [&](std::size_t limit) { return static_cast<std::size_t>(random() % (limit + 1)); };
    int converted = 0;
    EXPECT_GT(Table().size(), LeastCharsets);
    for (int round = 0; round < 3; ++round) {
        for (const Charset charset : Table()) {
            // In UTF-8 first, of letters that many charsets have, and all 128 of ASCII.
            const std::size_t wanted = round < 2 ? upTo(60) : 2000 + upTo(9000);
            std::string utf8(upTo(2) == 0 && wanted != 0 ? wanted - 1 : 0, 'a'); // then a letter at the very end
            while (utf8.size() < wanted) {
                if (upTo(2) == 0) {
                    const std::size_t run = upTo(3) == 0 ? upTo(300) : upTo(9);
                    for (std::size_t i = 0; i < run; ++i)
                        utf8 += static_cast<char>(upTo(127));
                }
                constexpr const char* Letters[] = {"\xC3\xA9",     "\xCE\xB1",    "\xD0\xB6", "\xE4\xB8\xAD",
                                                   "\xEA\xB0\x80", "\xD7\x90",    "\xD8\xA7", "\xE0\xB8\x81",
                                                   "e\xCC\x81",    "\xE2\x82\xAC"};
                const std::size_t family = upTo(1) == 0 ? 3 : upTo(std::size(Letters) - 1);
                std::string ignored;
                if (ByIconv(charset, KELDCharset::UTF8, Letters[family], ignored) || upTo(900) == 0)
                    utf8 += Letters[family];
            }
            std::string encoded;
            ByIconv(charset, KELDCharset::UTF8, utf8, encoded);
            if (upTo(3) == 0 && !encoded.empty())
                encoded[upTo(encoded.size() - 1)] = static_cast<char>(upTo(255));
            if (upTo(5) == 0)
                encoded.resize(upTo(encoded.size()));
            for (const auto other :
                 {KELDCharset::UTF8, KELDCharset::UCS2LE, KELDCharset::UCS4LE, KELDCharset::UTF16BE}) {
                std::string units;
                ByIconv(other, KELDCharset::UTF8, utf8, units);
                for (const bool isBack : {false, true}) {
                    const Charset to = isBack ? charset : other;
                    const Charset from = isBack ? other : charset;
                    if (Name(to) == Name(from))
                        continue;
                    SCOPED_TRACE(Name(to) + " from " + Name(from));
                    const std::string& text = isBack ? units : encoded;
                    std::string expected;
                    const bool whole = ByIconv(to, from, text, expected);
                    ASSERT_NO_FATAL_FAILURE(CheckCodec(to, from, text, whole, expected));
                    ASSERT_NO_FATAL_FAILURE(CheckTexts(to, from, text, expected));
                    converted += whole;
                }
            }
        }
    }
    EXPECT_GT(converted, static_cast<int>(9 * Table().size()));
}

TEST(Codec, MayBeToldToDropLetters) {
    std::string many;
    for (int i = 0; i < 20000; ++i) // more than iconv takes at a time
        many += "abc\xF0\x9F\x98\x80";
    KeldMBString result;
    EXPECT_TRUE(QzTextCodec("ASCII//IGNORE", "UTF-8").Convert(result, KeldMBString(std::string_view(many))));
    EXPECT_EQ(result.GetLength(), 60000);
    EXPECT_TRUE(QzTextCodec("GBK//ignore", "UTF-8").Convert(result, "a\xF0\x9F\x98\x80\xE4\xB8\xAD"));
    EXPECT_EQ(result, "a\xD6\xD0");
}

// More pairs than are kept, and names beside numbers: each converts as if it were alone.
TEST(Codec, KeepsConvertersApart) {
    for (int round = 0; round < 2; ++round) {
        for (const Charset charset : Table()) {
            QzTextCodec codec(charset, KELDCharset::UTF16LE);
            EXPECT_TRUE(codec.IsOpen() && QzTextCodec(charset, KELDCharset::UTF16LE).IsOpen());
            // What is read back is at least another number of the same name: 1, 132 and 137 share theirs.
            EXPECT_EQ(Name(QzTextCodec::GetCharset(KeldMBString(Name(charset)))), Name(charset));
        }
        KeldMBString latin;
        KeldMBString dos;
        QzTextCodec toLatin("ISO-8859-1", "UTF-8");
        QzTextCodec toDos("IBM437", "UTF-8");
        EXPECT_TRUE(toLatin.Convert(latin, "a\xC3\xA9") && toDos.Convert(dos, "a\xC3\xA9"));
        EXPECT_EQ(latin, "a\xE9");
        EXPECT_EQ(dos, "a\x82");
    }
    // A failed text leaves nothing for the next one that takes the same converter.
    KeldMBString result;
    EXPECT_FALSE(QzTextCodec(KELDCharset::UTF8, KELDCharset::ISO2022JP).Convert(result, "\x1B$B\x46"));
    EXPECT_TRUE(QzTextCodec(KELDCharset::UTF8, KELDCharset::ISO2022JP).Convert(result, "F|"));
    EXPECT_EQ(result, "F|");
    // Nor does the order that a byte-order mark told, in short texts and in long ones. Which one a text without a mark
    // has is iconv's to say.
    std::string letter;
    ByIconv(KELDCharset::UTF8, KELDCharset::UTF16, "A\0"s, letter);
    const bool isLittle = letter == "A";
    for (const std::size_t count : {std::size_t{0}, std::size_t{4000}}) {
        const std::string daggers(2 * count, '\x20'); // the same in both orders
        const KeldMBString marked((isLittle ? "\xFE\xFF\0A"s : "\xFF\xFE\x41\0"s) + daggers);
        const KeldMBString plain((isLittle ? "A\0"s : "\0A"s) + daggers);
        std::string expected = "A";
        for (std::size_t i = 0; i < count; ++i)
            expected += "\xE2\x80\xA0";
        for (const bool isReopened : {false, true}) {
            QzTextCodec codec("UTF-8", "UTF-16");
            EXPECT_TRUE(codec.Convert(result, marked) && result == KeldMBString(expected));
            if (isReopened)
                codec.Open("UTF-8", "UTF-16");
            EXPECT_TRUE(codec.Convert(result, plain) && result == KeldMBString(expected)) << isReopened;
            EXPECT_EQ(QzStringUTF8(marked, KELDCharset::UTF16).Cstr(), expected);
            EXPECT_EQ(QzStringUTF8(plain, KELDCharset::UTF16).Cstr(), expected);
        }
    }
    // A name that not every iconv knows: U+5730 is 92 6E there.
    EXPECT_TRUE(QzTextCodec("UTF-8", "windows-31J//IGNORE").Convert(result, "\x92n"));
    EXPECT_EQ(result, "\xE5\x9C\xB0");
    // Real files carry characters of GBK under the label GB2312: U+9555 is E9 46 there.
    EXPECT_STREQ(QzStringUTF8("\xD6\xEC\xE9\x46\xBB\xF9", QzTextCodec::GetCharset("gb2312")).Cstr(),
                 "\xE6\x9C\xB1\xE9\x95\x95\xE5\x9F\xBA");
}

TEST(Codec, FailureLeavesTheDestination) {
    const std::string much(4000, '\x87'); // a letter of three, of which each has three bytes
    const std::array<const char*, 3> cases[] = {
        // to, from and source
        {"UTF-8", "TSCII", much.c_str()}, {"UTF-16LE", "UTF-8", "ab\xFF\x80"}, {"GBK", "UTF-8", "\xF0\x9F\x98\x80"},
        {"UTF-8", "GBK", "a\x81"},        {"UTF-8", "NO-SUCH", "a"},           {"//IGNORE", "UTF-8", "a"},
        {"UTF-32", "UTF-8", "a"}, // byte-order mark and character: eight bytes of one
    };
    for (const auto& [to, from, bytes] : cases) {
        SCOPED_TRACE(std::string(to) + " from " + from);
        QzTextCodec codec(to, from);
        KeldMBString result("old");
        EXPECT_FALSE(codec.Convert(result, bytes));
        EXPECT_EQ(result, "old");
        KeldMBString fresh("old"); // nothing of the failed text meets the next
        EXPECT_EQ(codec.Convert(result, "abcd"), QzTextCodec(to, from).Convert(fresh, "abcd"));
        EXPECT_EQ(result, fresh);
    }
    QzTextCodec codec("GBK", "UTF-8");
    EXPECT_FALSE(codec.Open(KeldMBString("GBK\0", 4), "UTF-8") || codec.IsOpen()); // cut, it would be a charset
}

TEST(Codec, CopiesBetweenEqualNames) {
    QzTextCodec codec(KELDCharset::UTF8, KELDCharset::UTF8);
    const KeldMBString source("a\0\xFF", 3); // copied, not looked at
    KeldMBString result;
    EXPECT_TRUE(codec.Convert(result, source));
    EXPECT_EQ(result, source);
    EXPECT_TRUE(codec.Convert(result, "abcdef", -1));
    EXPECT_TRUE(codec.Convert(result, result.Cstr() + 2, 0)); // a part of itself
    EXPECT_EQ(result, "cdef");
    std::string raw = "xxxx";
    int length = 77;
    for (const int room : {3, 4}) {
        EXPECT_TRUE(codec.Convert(reinterpret_cast<unsigned char*>(raw.data()), room, length,
                                  reinterpret_cast<const unsigned char*>("abc"), 3));
        EXPECT_EQ(length, room == 3 ? 77 : 3);
        EXPECT_EQ(raw, room == 3 ? "xxxx" : "abcx");
    }
}

// Where nothing is converted, and what the numbers 1 and 132 stand for.
TEST(Texts, TakeTheirOwnCharsetAsItIs) {
    const CurrentCharset current(KELDCharset::GB2312);
    QzStringW wide(KeldMBString("\xD6\xD0\xCE\xC4")); // the text says 1, the current charset
    EXPECT_TRUE(wide == L"\u4E2D\u6587");
    EXPECT_EQ(wide.ToString(KELDCharset::Current), "\xD6\xD0\xCE\xC4");
    EXPECT_EQ(wide.ToString(KELDCharset::Current).GetCharset(), KELDCharset::GB2312);
    EXPECT_EQ(wide.ToString(KELDCharset::Ansi).GetCharset(), KELDCharset::Ansi);
    EXPECT_EQ(QzStringW(L"ab").ToString(KELDCharset::Wide), "a"); // bytes up to the first zero
    const std::string partial = std::string("a\0\0\0", sizeof(wchar_t)) + 'b';
    wide.FromString(KeldMBString(std::string_view(partial)), KELDCharset::Wide);
    EXPECT_TRUE(wide == L"ab"); // ends within a unit
    EXPECT_EQ(QzStringUCS2LE("ab", KELDCharset::UTF8).ToString(KELDCharset::UCS2LE), "a");
    const QzStringUTF8 utf8(KeldMBString("a\xFF\0b", 4), KELDCharset::UTF8);
    EXPECT_EQ(utf8.GetLength(), 2);
    EXPECT_EQ(utf8.ToString(KELDCharset::UTF8), "a\xFF");
    EXPECT_EQ(QzStringUTF8("a", KELDCharset::UTF8).ToString(KELDCharset::Big5).GetCharset(), KELDCharset::Current);
}

TEST(StringUCS2LE, StreamsItsUnits) {
    QzByteArray bytes;
    bytes << QzStringUCS2LE(Zhongwen, KELDCharset::UTF8) << QzStringUCS2LE();
    EXPECT_EQ(Bytes(bytes), "\x04\0\0\0\x2D\x4E\x87\x65\0\0\0\0"s);
    bytes.Seek(0);
    QzStringUCS2LE text;
    static_cast<QzStream&>(bytes) >> text;
    EXPECT_EQ(text.ToString(KELDCharset::UTF8), Zhongwen);
    for (const std::string& stored : {"\6\0\0\0a\0b\0"s, "\xFF\xFF\xFF\xFF??"s, "\xFE\xFF\xFF\x7F??"s, "\2"s}) {
        QzByteArray array(stored.data(), static_cast<std::int64_t>(stored.size()));
        array >> text;
        EXPECT_EQ(text.GetLength(), 0);
        EXPECT_FALSE(array.IsGood());
    }
}

TEST(StringEx, HashesAndChangesCharset) {
    QzStringEx text(KeldMBString{Zhongwen});
    text.SetCharset(KELDCharset::UTF8);
    EXPECT_EQ(text.HashVal(), 0x45AC77E6U);
    EXPECT_FALSE(text.ChangeCharset(99));
    EXPECT_EQ(text, Zhongwen);
    EXPECT_EQ(text.GetCharset(), KELDCharset::UTF8);
    EXPECT_TRUE(text.ChangeCharset(134));
    EXPECT_EQ(text, "\xD6\xD0\xCE\xC4");
    EXPECT_EQ(text.GetCharset(), KELDCharset::GB2312);
}

// The codes of texts come from another implementation of the same scheme.
TEST(HashCode, IsWhatStoredCodesAre) {
    const CurrentCharset current(KELDCharset::UTF8);
    const std::tuple<const char*, int, int> cases[] = {
        {"", 757602046, -842352736},        {"a", -842352705, -842352705},
        {"abc", 842210264, 268834208},      {"Zephyron", 1537827447, 538389516},
        {Zhongwen, 2112040548, 1591576039}, {"r\xC3\xA9sum\xC3\xA9 \xC3\xA4", -298068370, -133879394},
    };
    for (const auto& [text, fast, full] : cases) {
        EXPECT_EQ(QzHashCode::FastStringToHashCode(text), fast) << text;
        EXPECT_EQ(QzHashCode::StringToHashCode(text), full) << text;
    }
    using Code = QzHashCode;
    const std::pair<int, std::int64_t> numbers[] = {{Code::ShortToHashCode(-2), -2},
                                                    {Code::LONGToHashCode(0x100000000), 0},
                                                    {Code::FloatToHashCode(-2.5F), 0xC0200000 - 0x100000000},
                                                    {Code::DoubleToHashCode(3.141592653589793), 340593891}};
    for (const auto& row : numbers)
        EXPECT_EQ(row.first, row.second) << &row - numbers;
}
