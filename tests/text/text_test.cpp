#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <iconv.h>
#include <limits>
#include <random>
#include <set>
#include <tuple>
#include <unordered_set>
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
#include "toolkit/qztoolkit.h"

using namespace Qzc;
using namespace std::string_literals;

namespace {

using Charset = KELDCharset::Charset;

const char Zhongwen[] = "\xE4\xB8\xAD\xE6\x96\x87"; // U+4E2D U+6587, "Chinese"

} // namespace

namespace {

// Numbers of the table that this system's iconv must know.
constexpr int Table[] = {0,     1,     77,    128,   129,   130,   132,   134,   136,   137,   161,   162,
                         163,   177,   178,   186,   204,   222,   238,   250,   251,   252,   253,   254,
                         437,   850,   866,   951,   1200,  1201,  10007, 20127, 20866, 21866, 28591, 28592,
                         28593, 28594, 28595, 28596, 28597, 28598, 28599, 28600, 28601, 28603, 28604, 28605,
                         28606, 50220, 50225, 50227, 51932, 51950, 54936, 65000, 70000, 70001, 70002, 70003,
                         70010, 70013, 70014, 70020, 70022, 70023, 70024, 70025, 70026, 70027, 70028, 70029};

// What iconv itself makes of a text in one call and the closing one; false when it leaves any of it.
bool ByIconv(const char* to, const char* from, const std::string& text, std::string& result) {
    const iconv_t handle = iconv_open(to, from);
    if (handle == reinterpret_cast<iconv_t>(-1))
        return false;
    std::string room(text.size() * 5, '\0');
    char* in = const_cast<char*>(text.data());
    char* out = room.data();
    std::size_t inLeft = text.size();
    std::size_t outLeft = room.size();
    iconv(handle, &in, &inLeft, &out, &outLeft);
    const bool whole = inLeft == 0 && iconv(handle, nullptr, nullptr, &out, &outLeft) != static_cast<std::size_t>(-1);
    iconv_close(handle);
    result = room.substr(0, room.size() - outLeft);
    return whole;
}

} // namespace

TEST(Codec, OpensEveryCharsetOfTheTable) {
    for (const int number : Table) {
        const auto charset = static_cast<Charset>(number);
        EXPECT_TRUE(QzTextCodec(KELDCharset::UTF16LE, charset).IsOpen()) << number;
        EXPECT_TRUE(QzTextCodec(charset, KELDCharset::UTF8).IsOpen()) << number;
        // What is read back is at least another number of the same name: 1, 132 and 137 share theirs.
        const KeldMBString name = QzTextCodec::GetCharsetName(charset);
        EXPECT_EQ(QzTextCodec::GetCharsetName(QzTextCodec::GetCharset(name)), name);
    }
}

// Random texts with stretches of ASCII, valid and not, short and long, between every charset and the wide ones: the
// same as iconv's own single call.
TEST(Codec, ConvertsAsIconvDoes) {
    std::mt19937 random(3);
    const auto upTo = [&](std::size_t limit) { return static_cast<std::size_t>(random() % (limit + 1)); };
    int converted = 0;
    for (int round = 0; round < 6; ++round) {
        for (const int number : Table) {
            const auto charset = static_cast<Charset>(number);
            const std::string name(QzTextCodec::GetCharsetName(charset).View());
            // In UTF-8 first, of letters that many charsets have, and all 128 of ASCII.
            std::string utf8;
            const std::size_t wanted = round < 4 ? upTo(60) : 2000 + upTo(20000);
            while (utf8.size() < wanted) {
                if (upTo(2) == 0) {
                    const std::size_t run = upTo(3) == 0 ? upTo(300) : upTo(9);
                    for (std::size_t i = 0; i < run; ++i)
                        utf8 += static_cast<char>(upTo(127));
                }
                constexpr const char* Letters[] = {"\xC3\xA9",     "\xCE\xB1",     "\xD0\xB6",
                                                   "\xE4\xB8\xAD", "\xEA\xB0\x80", "\xD7\x90",
                                                   "\xD8\xA7",     "\xE0\xB8\x81", "e\xCC\x81"};
                const std::size_t family = upTo(1) == 0 ? 3 : upTo(std::size(Letters) - 1);
                std::string ignored;
                if (ByIconv(name.c_str(), "UTF-8", Letters[family], ignored) || upTo(900) == 0)
                    utf8 += Letters[family];
            }
            std::string encoded;
            ByIconv(name.c_str(), "UTF-8", utf8, encoded);
            if (upTo(3) == 0 && !encoded.empty())
                encoded[upTo(encoded.size() - 1)] = static_cast<char>(upTo(255));
            if (upTo(5) == 0)
                encoded.resize(upTo(encoded.size()));
            for (const int wide : {250, 251, 253, 1201}) {
                const auto other = static_cast<Charset>(wide);
                const std::string otherName(QzTextCodec::GetCharsetName(other).View());
                if (name == otherName)
                    continue;
                const auto check = [&](Charset to, Charset from, const std::string& toName, const std::string& fromName,
                                       const std::string& text) {
                    std::string expected;
                    const bool whole = ByIconv(toName.c_str(), fromName.c_str(), text, expected);
                    KeldMBString result("old");
                    ASSERT_EQ(QzTextCodec(to, from).Convert(result, KeldMBString(std::string_view(text))), whole)
                        << toName << " from " << fromName << ' ' << text.size();
                    ASSERT_TRUE(result.View() == (whole ? expected : "old")) << toName << " from " << fromName;
                    // The same into raw memory.
                    std::string raw(text.size() * 5 + 1, '!');
                    int length = -7;
                    ASSERT_EQ(QzTextCodec(to, from).Convert(reinterpret_cast<unsigned char*>(raw.data()), 0, length,
                                                            reinterpret_cast<const unsigned char*>(text.data()),
                                                            static_cast<int>(text.size())),
                              whole);
                    ASSERT_EQ(length, whole ? static_cast<int>(expected.size()) : -7);
                    ASSERT_TRUE(!whole || raw.compare(0, expected.size(), expected) == 0);
                    ASSERT_EQ(raw.back(), '!');
                    converted += whole;
                };
                check(other, charset, otherName, name, encoded);
                std::string units;
                ByIconv(otherName.c_str(), "UTF-8", utf8, units);
                check(charset, other, name, otherName, units);
            }
        }
    }
    EXPECT_GT(converted, 2000);
}

TEST(Codec, MayBeToldToDropLetters) {
    std::string many;
    for (int i = 0; i < 20000; ++i) // more than iconv takes at a time
        many += "ab\xF0\x9F\x98\x80";
    KeldMBString result;
    EXPECT_TRUE(QzTextCodec("ASCII//IGNORE", "UTF-8").Convert(result, KeldMBString(std::string_view(many))));
    EXPECT_EQ(result.GetLength(), 40000);
    EXPECT_TRUE(QzTextCodec("GBK//ignore", "UTF-8").Convert(result, "a\xF0\x9F\x98\x80\xE4\xB8\xAD"));
    EXPECT_EQ(result, "a\xD6\xD0");
}

// More pairs than are kept, and names beside numbers: each converts as if it were alone.
TEST(Codec, KeepsConvertersApart) {
    const KeldMBString text("a\xC3\xA9");
    for (int round = 0; round < 3; ++round) {
        for (const int number : Table) {
            for (const int from : {250, 251}) {
                QzTextCodec codec(static_cast<Charset>(number), static_cast<Charset>(from));
                QzTextCodec same(static_cast<Charset>(number), static_cast<Charset>(from));
                EXPECT_TRUE(codec.IsOpen() && same.IsOpen());
            }
        }
        KeldMBString latin;
        KeldMBString dos;
        QzTextCodec toLatin("ISO-8859-1", "UTF-8");
        QzTextCodec toDos("IBM437", "UTF-8");
        EXPECT_TRUE(toLatin.Convert(latin, text) && toDos.Convert(dos, text));
        EXPECT_EQ(latin, "a\xE9");
        EXPECT_EQ(dos, "a\x82");
        EXPECT_TRUE(toLatin.Open("IBM437", "UTF-8") && toLatin.Convert(latin, text));
        EXPECT_EQ(latin, dos);
    }
    // A failed text leaves nothing for the next one that takes the same converter.
    KeldMBString result;
    EXPECT_FALSE(QzTextCodec(KELDCharset::UTF8, KELDCharset::ISO2022JP).Convert(result, "\x1B$B\x46"));
    EXPECT_TRUE(QzTextCodec(KELDCharset::UTF8, KELDCharset::ISO2022JP).Convert(result, "F|"));
    EXPECT_EQ(result, "F|");
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
        {"//IGNORE", "UTF-8", "a"},
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
    EXPECT_FALSE(codec.Open(KeldMBString("GBK\0", 4), "UTF-8")); // cut, it would be a charset
    EXPECT_TRUE(codec.Open("GBK", "UTF-8"));
    EXPECT_FALSE(codec.Open("GBK", "NO-SUCH") || codec.IsOpen());
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
    for (const int ignored : {2, 0, -1}) {
        EXPECT_TRUE(codec.Convert(result, "abcdef", ignored));
        EXPECT_EQ(result, "abcdef");
    }
    EXPECT_TRUE(codec.Convert(result, result.Cstr() + 2, 0)); // a part of itself
    EXPECT_EQ(result, "cdef");

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

static_assert(std::is_nothrow_copy_constructible_v<QzStringW> && std::is_nothrow_move_constructible_v<QzStringW>);

namespace {

std::wstring Left(const std::wstring& text, int count) {
    return text.substr(0, static_cast<std::size_t>(std::max(count, 0)));
}
std::wstring Mid(const std::wstring& text, int index, int count) {
    const auto from = static_cast<std::size_t>(std::max(index, 0));
    return from < text.size() && count >= 0 ? text.substr(from, static_cast<std::size_t>(count)) : std::wstring();
}
std::wstring Lowered(std::wstring text) {
    for (wchar_t& c : text)
        c = c >= L'A' && c <= L'Z' ? c + 32 : c;
    return text;
}
int Index(std::size_t position) {
    return position == std::wstring::npos ? -1 : static_cast<int>(position);
}
int Sign(int value) {
    return value < 0 ? -1 : value > 0;
}

} // namespace

// Random operations on a text and on a standard string. Every second argument is the text itself.
TEST(StringW, IsWhatAStandardStringIs) {
    std::mt19937 random(17);
    const auto upTo = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned int>(limit + 1)); };
    std::wstring model;
    QzStringW text;
    for (int step = 0; step < 60000; ++step) {
        const int length = static_cast<int>(model.size());
        const int index = upTo(length + 4) - 2;
        const int count = upTo(length + 4) - 2;
        const auto at = static_cast<std::size_t>(std::clamp(index, 0, length));
        std::wstring other;
        while (upTo(3) != 0)
            other += L"abAZ \t\u00E9\u4E2D"[upTo(7)];
        // A part of the text that reaches its end is zero-terminated as an argument must be.
        const bool isOwn = upTo(1) == 0 && at < model.size();
        if (isOwn)
            other = model.substr(at);
        const wchar_t* const argument = isOwn ? text.Cstr() + at : other.c_str();
        const wchar_t c = L"abA "[upTo(3)];
        switch (upTo(19)) {
        case 0:
            model += other;
            text += argument;
            break;
        case 1:
            model.insert(at, other);
            ASSERT_EQ(text.Insert(index, argument), model.size());
            break;
        case 2:
            model.insert(at, static_cast<std::size_t>(std::max(count, 0)), c);
            ASSERT_EQ(text.Insert(index, c, count), model.size());
            break;
        case 3:
            model.erase(at, static_cast<std::size_t>(std::max(count, 0)));
            ASSERT_EQ(text.Delete(index, count), model.size());
            break;
        case 4: {
            int removed = 0;
            for (std::size_t i = 0; i < model.size(); ++i) { // what moves into a removed one's place is stepped over
                if (model[i] == c) {
                    model.erase(i, 1);
                    ++removed;
                }
            }
            ASSERT_EQ(text.Remove(c), removed);
            break;
        }
        case 5: {
            std::wstring from(1, c);
            if (upTo(1) == 0)
                from += L'b';
            std::wstring result;
            int replaced = 0;
            std::size_t start = 0;
            for (std::size_t found; (found = model.find(from, start)) != std::wstring::npos; ++replaced) {
                result += model.substr(start, found - start) + other;
                start = found + from.size();
            }
            model = result + model.substr(start);
            ASSERT_EQ(text.Replace(from.c_str(), argument), replaced);
            break;
        }
        case 6:
            ASSERT_EQ(text.Replace(c, L'b'), c == L'b' ? 0 : std::count(model.begin(), model.end(), c));
            std::replace(model.begin(), model.end(), c, L'b');
            break;
        case 7:
            model.erase(0, model.find_first_not_of(L"\t\r\n "));
            text.TrimLeft();
            break;
        case 8:
            model.erase(model.find_last_not_of(L"\t\r\n ") + 1);
            text.TrimRight();
            break;
        case 9:
            model.erase(0, model.find_first_not_of(c));
            model.erase(model.find_last_not_of(L'b') + 1);
            text.TrimLeft(c).TrimRight(L'b');
            break;
        case 10:
            model.erase(0, model.find_first_not_of(L"bZ"));
            model.erase(model.find_last_not_of(L"a\u00E9") + 1);
            text.TrimLeft(L"bZ").TrimRight(L"a\u00E9");
            break;
        case 11:
            if (index >= 0 && index < length) {
                model[at] = c;
                text.SetAt(index, c);
                text[static_cast<long>(index)] = c;
                ASSERT_EQ(std::as_const(text)[static_cast<std::size_t>(index)], c);
            }
            break;
        case 12:
            model = Lowered(model);
            text.MakeLower();
            break;
        case 13:
            for (wchar_t& unit : model)
                unit = unit >= L'a' && unit <= L'z' ? unit - 32 : unit;
            text.MakeUpper();
            break;
        case 14:
            std::reverse(model.begin(), model.end());
            text.MakeInverse();
            break;
        case 15:
            model = Mid(model, index, count);
            text = text.Mid(index, count);
            break;
        case 16: // the two ends are the other way round
            model = count < 0 ? model : count >= length ? L"" : Mid(model, length - count, length);
            text = text.Right(count);
            break;
        case 17: {
            const auto start = static_cast<std::size_t>(std::max(index, 0));
            ASSERT_EQ(text.Find(argument, index), Index(model.find(other, start)));
            ASSERT_EQ(text.Find(c, index), Index(model.find(c, start)));
            ASSERT_EQ(text.Find(int{c}), Index(model.find(c)));
            ASSERT_EQ(text.Find(0), Index(model.find(L'\0')));
            ASSERT_EQ(text.ReverseFind(c), Index(model.rfind(c)));
            ASSERT_EQ(text.FindOneOf(argument), Index(model.find_first_of(other)));
            ASSERT_EQ(text.SpanIncluding(argument).View(), model.substr(0, model.find_first_not_of(other)));
            ASSERT_EQ(text.SpanExcluding(L"Z ").View(), model.substr(0, model.find_first_of(L"Z ")));
            ASSERT_EQ(text.Left(count).View(), Left(model, count));
            ASSERT_EQ(text.Mid(index).View(), Mid(model, index, length));
            break;
        }
        case 18: {
            const QzStringW right(std::wstring_view{other});
            ASSERT_EQ(Sign(text.Compare(argument)), Sign(model.compare(other)));
            ASSERT_EQ(Sign(text.CompareNoCase(argument)), Sign(Lowered(model).compare(Lowered(other))));
            ASSERT_EQ(text == right, model == other);
            ASSERT_EQ(text != argument, model != other);
            ASSERT_EQ(text < right, model < other);
            ASSERT_EQ(argument > text, other > model);
            ASSERT_EQ(text <= argument, model <= other);
            ASSERT_EQ(text >= right, model >= other);
            ASSERT_EQ(std::wstring(text.begin(), text.end()), model);
            break;
        }
        default:
            model = other + c + model + other;
            text = argument + (QzStringW() + c) + text + argument;
            if (isOwn) // the argument moved while the text was put together
                text = QzStringW(std::wstring_view(model));
            text.SetCapacity(text.GetLength() + 100);
            ASSERT_GE(text.GetCapacity(), text.GetLength() + 100);
        }
        if (model.size() > 200) {
            model.erase(10);
            text = text.Left(10);
        }
        ASSERT_EQ(text.View(), model) << "step " << step;
        ASSERT_EQ(text.Cstr()[text.GetLength()], L'\0');
    }
}

TEST(StringW, IsAKeyAndSplits) {
    const std::set<QzStringW> ordered = {L"b", L"a", L"b", L"\u4E2D"};
    EXPECT_EQ(ordered.size(), 3U);
    EXPECT_TRUE(*ordered.begin() == L"a");
    EXPECT_EQ((std::unordered_set<QzStringW>{L"b", L"a", L"b"}.size()), 2U);
    EXPECT_NE(QzStringW(L"\u00C9").CompareNoCase(L"\u00E9"), 0);
    EXPECT_TRUE(QzStringW(L"aaab") == L"aaab" && QzStringW(std::wstring_view(L"a\0b", 3)) > L"a");

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
    EXPECT_EQ(text[std::uint64_t{1} << 40] + text[std::numeric_limits<std::uint64_t>::max()], 0);
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

    EXPECT_EQ(QzStringW(L"ab").ToString(KELDCharset::Wide), "a"); // bytes up to the first zero
    EXPECT_EQ(QzStringUCS2LE("ab", KELDCharset::UTF8).ToString(KELDCharset::UCS2LE), "a");
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
    for (const int carried : {1, 134, 250, 0, 99}) { // whatever the text says that it is
        KeldMBString text("\xD6\xD0\xCE\xC4");
        text.SetCharset(static_cast<Charset>(carried));
        EXPECT_EQ(QzHashCode::StringToHashCode(text), 1591576039) << carried;
    }
    EXPECT_EQ(QzHashCode::StringToHashCode("\xD6"), -842352736); // no text: as an empty one
    // Longer than what is converted at a time; the scheme once more, over the units themselves.
    std::string much;
    for (int i = 0; i < 4000; ++i)
        much += i % 7 == 0 ? "\xD6\xD0" : "x";
    std::uint32_t lanes[] = {0x15051505, 0x15051505};
    for (std::size_t i = 0, unit = 0; i < much.size(); i += much[i] == 'x' ? 1 : 2, ++unit) {
        for (std::size_t lane = 0; lane < (unit == 0 ? 1 : 2); ++lane) {
            std::uint32_t& h = lanes[lane];
            h = ((h << 5) + h + static_cast<std::uint32_t>(static_cast<std::int32_t>(h) >> 27)) ^
                (much[i] == 'x' ? 'x' : 0x4E2DU);
        }
    }
    EXPECT_EQ(QzHashCode::StringToHashCode(KeldMBString(std::string_view(much))),
              static_cast<int>(lanes[0] + lanes[1] * 0x5D588B65));

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
    EXPECT_EQ(QzHashCode::DoubleToHashCode(std::numeric_limits<double>::quiet_NaN()), 0x7FF80000);
    EXPECT_EQ(QzHashCode::FloatToHashCode(std::numeric_limits<float>::quiet_NaN()), 0x7FC00000);
}
