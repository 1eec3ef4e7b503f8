#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <tuple>
#include <utility>

#include "stream/qzbytearray.h"
#include "stream/qztrace.h"
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

const char Zhongwen[] = "\xE4\xB8\xAD\xE6\x96\x87"; // U+4E2D U+6587, "Chinese"

} // namespace

TEST(Codec, OpensEveryCharsetOfTheTable) {
    for (const int number : {0,     1,     77,    128,   129,   130,   132,   134,   136,   137,   161,   162,
                             163,   177,   178,   186,   204,   222,   238,   250,   251,   252,   253,   254,
                             1200,  1201,  20127, 20866, 21866, 28591, 28592, 28593, 28594, 28595, 28596, 28597,
                             28598, 28599, 28600, 28601, 28603, 28604, 28605, 28606, 51932, 54936}) {
        const auto charset = static_cast<Charset>(number);
        EXPECT_TRUE(QzTextCodec(KELDCharset::UTF16LE, charset).IsOpen()) << number;
        EXPECT_TRUE(QzTextCodec(charset, KELDCharset::UTF8).IsOpen()) << number;
        // What is read back is at least another number of the same name: 1, 132 and 137 share theirs.
        const KeldMBString name = QzTextCodec::GetCharsetName(charset);
        EXPECT_EQ(QzTextCodec::GetCharsetName(QzTextCodec::GetCharset(name)), name);
    }
}

TEST(Codec, Converts) {
    const std::array<std::string, 4> cases[] = {
        // to, from, source and result
        {"GBK", "UTF-8", Zhongwen, "\xD6\xD0\xCE\xC4"},
        {"BIG5", "UTF-8", Zhongwen, "\xA4\xA4\xA4\xE5"},
        {"UTF-16BE", "UTF-8", Zhongwen, "\x4E\x2D\x65\x87"},
        {"UTF-8", "UTF-16LE", "a\0\0\0b\0"s, "a\0b"s},
        {"UTF-8", "UTF-16LE", "\x3D\xD8\x00\xDE"s, "\xF0\x9F\x98\x80"},  // a surrogate pair
        {"UTF-8", "WINDOWS-1258", "Vi\xEA\xF2t e", "Vi\xE1\xBB\x87t e"}, // a mark may follow the e
    };
    for (const auto& [to, from, source, expected] : cases) {
        KeldMBString result("old");
        result.SetCharset(KELDCharset::Thai);
        QzTextCodec codec(KeldMBString{to}, KeldMBString{from});
        for (int again = 0; again < 2; ++again) {
            EXPECT_TRUE(codec.Convert(result, KeldMBString(source)));
            EXPECT_EQ(result.View(), expected) << to << " from " << from;
        }
        EXPECT_EQ(result.GetCharset(), KELDCharset::Thai);
    }
    // Real files carry characters of GBK under the label GB2312: U+9555 is E9 46 there.
    EXPECT_STREQ(QzStringUTF8("\xD6\xEC\xE9\x46\xBB\xF9", QzTextCodec::GetCharset("gb2312")).Cstr(),
                 "\xE6\x9C\xB1\xE9\x95\x95\xE5\x9F\xBA");
}

TEST(Codec, FailureLeavesTheDestination) {
    const std::array<const char*, 3> cases[] = {
        // to, from and source
        {"UTF-16LE", "UTF-8", "ab\xFF\x80"},
        {"UTF-16LE", "UTF-8", "ab\xE4\xB8"},
        {"GBK", "UTF-8", "\xF0\x9F\x98\x80"},
        {"UTF-8", "GBK", "a\x81"},
        {"UTF-8", "NO-SUCH", "a"},
        {"", "UTF-8", "a"},
        {"UTF-32", "UTF-8", "a"}, // byte-order mark and character: eight bytes of one
    };
    for (const auto& [to, from, bytes] : cases) {
        SCOPED_TRACE(std::string(to) + " from " + from);
        QzTextCodec codec(to, from);
        const KeldMBString source(bytes);
        KeldMBString result("old");
        int length = 77;
        unsigned char raw[64] = {};
        EXPECT_FALSE(codec.Convert(result, source));
        EXPECT_FALSE(
            codec.Convert(raw, 64, length, reinterpret_cast<const unsigned char*>(source.Cstr()), source.GetLength()));
        EXPECT_EQ(result, "old");
        EXPECT_EQ(length, 77);
        KeldMBString fresh("old"); // nothing of the failed text meets the next
        EXPECT_EQ(codec.Convert(result, "abcd"), QzTextCodec(to, from).Convert(fresh, "abcd"));
        EXPECT_EQ(result, fresh);
    }
    QzTextCodec codec(KELDCharset::UTF8, KELDCharset::GB2312);
    codec.Close();
    KeldMBString result;
    EXPECT_FALSE(codec.IsOpen() || codec.Convert(result, "a"));
    EXPECT_FALSE(codec.Open(static_cast<Charset>(99), KELDCharset::UTF8));
    EXPECT_FALSE(codec.Open(KELDCharset::UTF8, KELDCharset::Unknown));
}

TEST(Codec, CopiesBetweenEqualNames) {
    QzTextCodec codec(KELDCharset::UTF8, KELDCharset::UTF8);
    const KeldMBString source("a\0\xFF", 3); // copied, not looked at
    KeldMBString result;
    result.SetCharset(KELDCharset::Thai);
    EXPECT_TRUE(codec.Convert(result, source));
    EXPECT_EQ(result, source);
    EXPECT_EQ(result.GetCharset(), KELDCharset::Thai);
    EXPECT_TRUE(codec.Convert(result, source.Cstr(), 3));
    EXPECT_EQ(result, "a");
    EXPECT_TRUE(codec.Convert(result, "abcdef", 2));
    EXPECT_EQ(result, "abcdef");

    unsigned char raw[4] = {'x', 'x', 'x', 'x'};
    const auto* const abc = reinterpret_cast<const unsigned char*>("abc");
    int length = 77;
    EXPECT_TRUE(codec.Convert(raw, 3, length, abc, 3));
    EXPECT_EQ(length, 77);
    EXPECT_EQ(raw[0], 'x');
    EXPECT_TRUE(codec.Convert(raw, 4, length, abc, 3));
    EXPECT_EQ(length, 3);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(raw), 4), "abcx");

    // Otherwise the size of the room is the caller's affair, not dstSize's.
    unsigned char room[15] = {};
    EXPECT_TRUE(QzTextCodec(KELDCharset::UCS2BE, KELDCharset::UTF8).Convert(room, 0, length, abc, 3));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(room), 7), std::string("\0a\0b\0c\0", 7));
    EXPECT_EQ(length, 6);
}

TEST(Codec, JudgesLocalesBySubstring) {
    const std::pair<const char*, int> cases[] = {{"ja-jp", 128}, {"xJAx", 128},  {"zh-cn", 134},   {"zh-Hans-SG", 134},
                                                 {"zh-sg", 136}, {"ZH-TW", 136}, {"zh-Hant", 136}, {"zh-mo", 136},
                                                 {"zh-hk", 136}, {"sv-SE", 137}, {"ar-sa", 178},   {"es-ES", 137},
                                                 {"es-mx", 1},   {"", 1},        {"zh", 1}};
    for (const auto& [locale, charset] : cases)
        EXPECT_EQ(QzTextCodec::GetStrGlobalCharset(locale), charset) << locale;
    QzTextCodec::SetGlobalCharset("zh-tw", 1);
    EXPECT_EQ(QzTextCodec::GetGlobalCharset() + QzTextCodec::IsUseGlobalCharset(), 137);
    QzTextCodec::SetGlobalCharset(KELDCharset::Ansi, 0);
}

TEST(StringW, TakesParts) {
    const QzStringW text(L"abcd");
    const auto each = [](auto part) {
        std::wstring parts;
        for (int n = -1; n <= 5; ++n)
            (parts += part(n).Cstr()) += L',';
        return parts;
    };
    EXPECT_EQ(each([&](int n) { return text.Left(n); }), L",,a,ab,abc,abcd,abcd,");
    EXPECT_EQ(each([&](int n) { return text.Right(n); }), L"abcd,,d,cd,bcd,,,");
    EXPECT_EQ(each([&](int n) { return text.Mid(n); }), L"abcd,abcd,bcd,cd,d,,,");
    EXPECT_EQ(each([&](int n) { return text.Mid(n, 2); }), L"ab,ab,bc,cd,d,,,");
    EXPECT_EQ(each([&](int n) { return text.Mid(1, n); }), L",,b,bc,bcd,bcd,bcd,");
    EXPECT_TRUE(text.SpanIncluding(L"ba") == L"ab" && text.SpanIncluding(L"dcba") == text);
    EXPECT_TRUE(text.SpanExcluding(L"dc") == L"ab" && text.SpanExcluding(L"x") == text);
    EXPECT_TRUE(text.SpanIncluding(L"") == L"");
    EXPECT_EQ(text.Find(L'c'), 2);
    EXPECT_EQ(text.Find(L'a', 1), -1);
    EXPECT_EQ(text.Find(L"cd", -7), 2);
    EXPECT_EQ(QzStringW(L"abab").ReverseFind(L'a'), 2);
    EXPECT_EQ(text.FindOneOf(L"xdc"), 2);
    EXPECT_TRUE(text.Compare(L"abd") < 0 && text.Compare(L"abc") > 0 && text.CompareNoCase(L"ABCD") == 0);
    EXPECT_NE(QzStringW(L"\u00C9").CompareNoCase(L"\u00E9"), 0);
}

TEST(StringW, Edits) {
    QzStringW text(L"xaaaxa");
    EXPECT_EQ(text.Remove(L'a'), 3); // what moves into a removed one's place stays
    EXPECT_TRUE(text == L"xax");
    EXPECT_EQ(text.Delete(-5, 1), 2);
    EXPECT_EQ(text.Delete(0, -1), 2);
    EXPECT_EQ(text.Delete(1, 99), 1);
    EXPECT_EQ(text.Delete(1, 1), 1);
    EXPECT_EQ(text.Insert(99, L"b"), 2);
    EXPECT_EQ(text.Insert(1, text), 4); // itself
    EXPECT_EQ(text.Insert(-1, L'<', 2), 6);
    EXPECT_EQ(text.Insert(1, L'!', -3), 6);
    EXPECT_TRUE(text == L"<<aabb");
    EXPECT_EQ(text.Replace(L"<", L"<<"), 2);
    EXPECT_EQ(text.Replace(L"aab", L"ab"), 1);
    EXPECT_EQ(text.Replace(L'a', L'a'), 0);
    EXPECT_EQ(text.Replace(L'a', L'b'), 1);
    EXPECT_TRUE(text.MakeInverse() == L"bbb<<<<");
    EXPECT_TRUE(text.TrimRight(L'<').TrimLeft(L"xb") == L"");
    text = L"\t\r\n \u00A0a\u00DFz\u00E9 ";
    EXPECT_TRUE(text.TrimLeft().TrimRight().MakeUpper() == L"\u00A0A\u00DFZ\u00E9");

    KeldArray<QzStringW> pieces;
    pieces.Add(L" ,");
    EXPECT_EQ(QzStringW(L"  a,,b ").Split(pieces, pieces[0]), 2);
    EXPECT_EQ(pieces.GetSize(), 3);
    EXPECT_TRUE(pieces[1] == L"a" && pieces[2] == L"b");
    EXPECT_EQ(QzStringW(L" , ").Split(pieces, L", "), 0);
    EXPECT_EQ(QzStringW(L"a b").Split(pieces, L""), 1);
}

TEST(StringW, AnswersNullPointersAndBadIndices) {
    AssertionLog assertions;
    const wchar_t* const null = nullptr;
    QzStringW text(null);
    EXPECT_TRUE(text.IsEmpty() && QzStringW(null, 3).IsEmpty());
    text = L"ab";
    EXPECT_EQ(text.GetAt(2), L'\0');
    text.SetAt(-1, L'x');
    text[2] = L'x';
    EXPECT_EQ(text[2], L'\0');
    EXPECT_GT(text.Compare(null), 0);
    EXPECT_EQ(text.Find(null, 1), 1);
    EXPECT_EQ(text.FindOneOf(null), -1);
    EXPECT_EQ(text.Replace(L"a", null) + text.Replace(null, L"a"), 0);
    const std::string index = "nIndex >= 0&&nIndex < GetLength()";
    EXPECT_EQ(AssertionLog::Texts(), (std::vector<std::string>{"str != 0", "str != 0", index, index, index, index,
                                                               "pstr", "lpszSub", "lpszCharSet"}));
    // No null terminator is looked for and nothing is taken from the heap for counts like these.
    text.SetCapacity(-1);
    text.SetCapacity(std::numeric_limits<int>::max());
    EXPECT_EQ(text.Insert(0, L'x', std::numeric_limits<int>::max()), 2);
    EXPECT_LT(text.GetCapacity(), 100);
    EXPECT_TRUE(text == L"ab");
}

TEST(StringW, ConvertsFromAndTo) {
    const CurrentCharset current(KELDCharset::GB2312);
    QzStringW text(KeldMBString("\xD6\xD0\xCE\xC4")); // the text says 1, the current charset
    EXPECT_TRUE(text == L"\u4E2D\u6587");
    EXPECT_EQ(text.ToString(KELDCharset::Current), "\xD6\xD0\xCE\xC4");
    EXPECT_EQ(text.ToString(KELDCharset::Current).GetCharset(), KELDCharset::GB2312);
    EXPECT_EQ(text.ToString(KELDCharset::UCS2LE), "\x2D\x4E\x87\x65");
    EXPECT_EQ(text.ToString(KELDCharset::ISO8859_1), "");
    EXPECT_EQ(text.ToString(KELDCharset::ISO8859_1).GetCharset(), KELDCharset::ISO8859_1);

    text.Insert(1, L'\0');
    const KeldMBString utf8 = text.ToString(KELDCharset::UTF8);
    EXPECT_EQ(utf8, KeldMBString("\xE4\xB8\xAD\0\xE6\x96\x87", 7));
    const std::tuple<KeldMBString, Charset, std::wstring> cases[] = {
        {utf8, KELDCharset::UTF8, L"\u4E2D"},
        {"\xEF\xBB\xBF-", KELDCharset::UTF8, L"\uFEFF-"},
        {"\xFF", KELDCharset::UTF8, L""},
        {KeldMBString("a\0\0\0b", 5), KELDCharset::Wide, L"ab"}, // ends within a unit
    };
    for (const auto& [source, charset, expected] : cases) {
        text.FromString(source, charset);
        EXPECT_TRUE(text == expected.c_str()) << source;
    }
}

TEST(StringUTF8, ConvertsAndCutsAtZero) {
    EXPECT_STREQ(QzStringUTF8("\xD6\xD0\xCE\xC4", KELDCharset::GB2312).Cstr(), Zhongwen);
    EXPECT_STREQ(QzStringUTF8("\xD6", KELDCharset::GB2312).Cstr(), "");
    EXPECT_EQ(QzStringUTF8(KeldMBString("a\xFF\0b", 4), KELDCharset::UTF8).GetLength(), 2);
    EXPECT_EQ(QzStringUTF8(KeldMBString("a\0b", 3), KELDCharset::ISO8859_1).GetLength(), 1);
    const QzStringUTF8 text(Zhongwen, KELDCharset::UTF8);
    EXPECT_EQ(text.ToString(KELDCharset::Big5), "\xA4\xA4\xA4\xE5");
    EXPECT_EQ(text.ToString(KELDCharset::Big5).GetCharset(), KELDCharset::Current);
    EXPECT_EQ(text.ToString(KELDCharset::UTF8), Zhongwen);
    EXPECT_EQ(text.ToString(KELDCharset::Ansi), "");
    EXPECT_EQ(QzStringUTF8("a", KELDCharset::UTF8).ToString(KELDCharset::UCS2LE),
              "a"); // the zero byte is dropped
}

TEST(StringUCS2LE, StreamsItsUnits) {
    QzByteArray bytes;
    bytes << QzStringUCS2LE(Zhongwen, KELDCharset::UTF8) << QzStringUCS2LE();
    EXPECT_EQ(Bytes(bytes), "\x04\0\0\0\x2D\x4E\x87\x65\0\0\0\0"s);
    bytes.Seek(0);
    QzStringUCS2LE text;
    static_cast<QzStream&>(bytes) >> text;
    EXPECT_EQ(text.ToString(KELDCharset::UTF8), Zhongwen);

    const std::tuple<std::string, std::vector<int>, bool> cases[] = {
        {"\3\0\0\0a\0b"s, {'a', 'b', 0}, true}, // half a unit
        {"\3\0\0\0a\0\0"s, {'a', 0}, true},     {"\4\0\0\0a\0\0\0"s, {'a', 0, 0}, true},
        {"\6\0\0\0a\0b\0"s, {0}, false},        {"\xFF\xFF\xFF\xFF??", {0}, false},
        {"\xFE\xFF\xFF\x7F??", {0}, false},     {"\2", {0}, false},
    };
    for (const auto& [stored, units, good] : cases) {
        QzByteArray array(stored.data(), static_cast<std::int64_t>(stored.size()));
        array >> text;
        EXPECT_EQ(std::vector<int>(text.GetChars().begin(), text.GetChars().end()), units);
        EXPECT_EQ(array.IsGood(), good);
    }
    EXPECT_EQ(QzStringUCS2LE("\xFF", KELDCharset::UTF8).GetLength(), 0);
    EXPECT_EQ(QzStringUCS2LE(KeldMBString("a\0b", 3), KELDCharset::UTF8).GetLength(), 3);
}

TEST(StringEx, HashesStreamsAndChangesCharset) {
    QzStringEx text(KeldMBString{Zhongwen});
    text.SetCharset(KELDCharset::UTF8);
    EXPECT_EQ(QzStringEx("").HashVal(), 0U);
    EXPECT_EQ(QzStringEx("Zephyron").HashVal(), 0x0418D42DU);
    EXPECT_EQ(text.HashVal(), 0x45AC77E6U);
    EXPECT_FALSE(text.ChangeCharset(99));
    EXPECT_FALSE(text.ChangeCharset(KELDCharset::Ansi));
    EXPECT_EQ(text, Zhongwen);
    EXPECT_EQ(text.GetCharset(), KELDCharset::UTF8);
    EXPECT_TRUE(text.ChangeCharset(134));
    EXPECT_EQ(text, "\xD6\xD0\xCE\xC4");
    EXPECT_EQ(text.GetCharset(), KELDCharset::GB2312);

    QzByteArray bytes;
    bytes << text << KeldMBString("b");
    EXPECT_EQ(Bytes(bytes), std::string("\4\0\0\0\xD6\xD0\xCE\xC4\1\0\0\0b", 13));
    bytes.Seek(8);
    bytes >> text;
    EXPECT_EQ(text, "b");
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
    const CurrentCharset other(KELDCharset::GB2312);
    EXPECT_EQ(QzHashCode::StringToHashCode("\xD6\xD0\xCE\xC4"), 1591576039);

    using Code = QzHashCode;
    const std::pair<int, std::int64_t> numbers[] = {
        {Code::ByteToHashCode(0xFF), 255},
        {Code::BoolToHashCode(2), 1},
        {Code::ShortToHashCode(1), 0x00010001},
        {Code::ShortToHashCode(-2), -2},
        {Code::LONGToHashCode(0x100000000), 0},
        {Code::LONGToHashCode(-1), -1},
        {Code::FloatToHashCode(-0.0F), 0},
        {Code::FloatToHashCode(-2.5F), 0xC0200000 - 0x100000000},
        {Code::DoubleToHashCode(-0.0), 0},
        {Code::DoubleToHashCode(3.141592653589793), 340593891},
        {Code::PointerToHashCode(reinterpret_cast<void*>(0x180000001)), 0x80000001 - 0x100000000}};
    for (const auto& row : numbers)
        EXPECT_EQ(row.first, row.second) << &row - numbers;
    EXPECT_NE(QzHashCode::DoubleToHashCode(std::nan("")), 0);
}
