#include <gtest/gtest.h>

#include "base/keldarray.h"
#include "base/kelddict.h"
#include "base/keldmbstring.h"
#include "support.h"

using namespace KELD;

TEST(MBString, TakesPartsWithinBounds) {
    const KeldMBString text("abcdef");
    const auto each = [](auto part) {
        std::string parts;
        for (const int n : {-1, 0, 2, 5, 6, 7, KeldMBString::MaxLength})
            (parts += part(n).Cstr()) += ',';
        return parts;
    };
    EXPECT_EQ(each([&](int n) { return text.Left(n); }), ",,ab,abcde,abcdef,abcdef,abcdef,");
    EXPECT_EQ(each([&](int n) { return text.Right(n); }), ",,ef,bcdef,abcdef,abcdef,abcdef,");
    EXPECT_EQ(each([&](int n) { return text.Mid(n); }), "abcdef,abcdef,cdef,f,,,,");
    EXPECT_EQ(each([&](int n) { return text.Mid(4, n); }), ",,ef,ef,ef,ef,ef,");

    EXPECT_EQ(text.Find("cd"), 2);
    EXPECT_EQ(text.Find("cd", 3), -1);
    EXPECT_EQ(text.Find('a', -5), 0);
    EXPECT_EQ(text.Find("", 7), -1);
    EXPECT_EQ(text.ReverseFind('a'), 0);
    EXPECT_EQ(text.FindOneOf("xfe"), 4);
}

TEST(MBString, CarriesZeroBytesAndItsCharset) {
    KeldMBString text("a\0b", 3);
    text.SetCharset(KELDCharset::Big5);
    EXPECT_NE(text, "a");
    text += KeldMBString("\0c", 2);
    EXPECT_EQ(text.Replace(KeldMBString("\0", 1), "--"), 2);
    EXPECT_EQ(text, "a--b--c");
    EXPECT_EQ(text.Mid(1).GetCharset(), KELDCharset::Big5);
    text.Empty();
    EXPECT_EQ(text.GetCharset(), KELDCharset::Big5);
    EXPECT_EQ(KeldMBString("x").GetCharset(), KELDCharset::Current);
    EXPECT_EQ(KeldMBString(static_cast<const char*>(nullptr)) + KeldMBString("abc", -1), "");
}

TEST(MBString, Edits) {
    KeldMBString text("aXbXXc");
    EXPECT_EQ(text.Replace("X", "XX"), 3); // what was put in is not searched again
    EXPECT_EQ(text.Replace("XXX", "X.."), 1);
    EXPECT_EQ(text, "aXXbX..Xc");
    EXPECT_EQ(text.Replace("", "y"), 0);
    EXPECT_EQ(text.Replace('X', '.'), 4);
    EXPECT_EQ(text.Delete(1, 2), 7);
    EXPECT_EQ(text.Delete(6, 100), 6);
    EXPECT_EQ(text.Delete(99), 6);
    EXPECT_EQ(text.Insert(99, "!"), 7);
    EXPECT_EQ(text.Insert(-1, text), 14);
    EXPECT_EQ(text, "ab....!ab....!");
    text = " \t\r\n x y \n";
    EXPECT_EQ(text.TrimLeft().TrimRight(), "x y");
    text = "\t \n";
    EXPECT_EQ(text.TrimRight(), "");
    text = "name";
    text.Format("%s-%0300d", text.Cstr(), 7); // itself an argument, and longer than any small buffer
    EXPECT_EQ(text.View(), "name-" + std::string(299, '0') + "7");
}

TEST(MBString, ChangesTheCaseOfLettersOnly) {
    // U+4E64 is 81 61 in GBK and U+4E04 is 81 41: second bytes that are letters when alone.
    KeldMBString text("a\x81\x61z");
    text.SetCharset(KELDCharset::GB2312);
    EXPECT_EQ(text.MakeUpper(), "A\x81\x61Z");
    EXPECT_GT(text.CompareNoCase("A\x81\x41Z"), 0);
    text.SetCharset(KELDCharset::Ansi);
    EXPECT_EQ(text.CompareNoCase("a\x81\x41z"), 0);
    EXPECT_EQ(KeldMBString("\xC9").MakeLower(), "\xC9");
    EXPECT_LT(KeldMBString("ab").CompareNoCase("ABC"), 0);
    EXPECT_GT(KeldMBString("\xE9").Compare("z"), 0);
}

TEST(MBString, AnswersBadIndicesAndImpossibleLengths) {
    AssertionLog assertions;
    KeldMBString text("ab");
    EXPECT_EQ(text.GetAt(2) + text[-1], 0);
    text.SetAt(2, 'c');
    // Refused by its length, before any of it is looked at.
    text.Append(std::string_view(text.Cstr(), std::size_t{KeldMBString::MaxLength} - 1));
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(AssertionLog::Texts().size(), 4U);
}

TEST(Containers, AnswerBadIndicesAndMissingKeys) {
    AssertionLog assertions;
    KeldArray<int> array;
    array.SetSize(2);
    EXPECT_EQ(array.Add(5), 2);
    array[7] = 9;
    EXPECT_EQ(array[7], 0); // what was written out of range is not kept
    array.InsertAt(4, 1);
    array.RemoveAt(2, 2);
    array.SetSize(-1);
    EXPECT_EQ(AssertionLog::Texts().size(), 5U);
    array.InsertAt(3, 6);
    array.RemoveAt(0, 2);
    EXPECT_EQ(array.GetSize(), 2);
    EXPECT_EQ(array[0] * 10 + array[1], 56);

    KeldDict<int, KeldMBString> dict;
    dict.SetAt(3, "c");
    dict.SetAt(1, "x");
    dict.SetAt(1, "a");
    EXPECT_EQ(dict[2], "");
    EXPECT_EQ(dict.GetCount(), 2);
    EXPECT_EQ(dict.begin()->second, "a");
    KeldMBString value("kept");
    EXPECT_FALSE(dict.Lookup(2, value));
    EXPECT_EQ(value, "kept");
    EXPECT_TRUE(dict.RemoveKey(3));
    EXPECT_FALSE(dict.RemoveKey(3));
}

TEST(Charsets, NamesMapToNumbers) {
    const std::pair<const char*, int> cases[] = {
        {"utf-8", 250},          {"gb2312", 134},       {"GBK", 134},           {"Big5", 136},
        {"Shift_JIS", 128},      {"EUC-KR", 129},       {"windows-1253", 161},  {"cp1254", 162},
        {"Windows-1258", 163},   {"windows-1255", 177}, {"windows-1256", 178},  {"cp1257", 186},
        {"windows-1251", 204},   {"TIS-620", 222},      {"windows-1250", 238},  {"macintosh", 77},
        {"windows-1252", 0},     {"UTF-16LE", 1200},    {"iso-8859-15", 28605}, {"x-sjis", 128},
        {"ks_c_5601-1987", 129}, {"EUC-JP", 51932},     {"gb18030", 54936},     {"US-ASCII", 20127},
        {"koi8-r", 20866},       {"utf-16be", 1201},    {"johab", 130},         {"", -1},
        {"UTF-99", -1},          {"iso-8859-12", -1},   {"UTF-8 ", -1},
    };
    for (const auto& [name, number] : cases)
        EXPECT_EQ(KeldSystem::GetCharset(name), number) << name;
    EXPECT_EQ(KeldSystem::GetCharset(KeldMBString("UTF-8\0x", 7)), KELDCharset::Unknown);
}

TEST(Charsets, TheCurrentOneCanBeSet) {
    const CurrentCharset current(KELDCharset::GB2312);
    EXPECT_EQ(KeldSystem::GetCharsetName(KELDCharset::Current), "GBK");
    EXPECT_TRUE(KeldSystem::IsLeadByte(KELDCharset::Current, 0x81));
    EXPECT_FALSE(KeldSystem::SetCurCharset(KELDCharset::Current));
    EXPECT_FALSE(KeldSystem::SetCurCharset(KELDCharset::Unknown));
    EXPECT_EQ(KeldSystem::GetCurCharset(), KELDCharset::GB2312);
    EXPECT_EQ(KeldSystem::GetCharsetName(static_cast<KELDCharset::Charset>(99)), "");
}
