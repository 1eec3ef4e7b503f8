// The 8-bit and the wide text beside the standard library's strings.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>
#include <type_traits>
#include <unordered_set>

#include "support.h"
#include "toolkit/qzstringw.h"

using namespace Qzc;

static_assert(std::is_nothrow_copy_constructible_v<KeldMBString> && std::is_nothrow_move_constructible_v<KeldMBString>);
static_assert(std::is_nothrow_copy_constructible_v<QzStringW> && std::is_nothrow_move_constructible_v<QzStringW>);

namespace {

struct Narrow {
    using Text = KeldMBString;
    static constexpr std::string_view Letters{"abcABZ \t\r\n\0\xE9", 12};
    static std::string_view Argument(std::string_view part) { return part; }
};
struct Wide {
    using Text = QzStringW;
    static constexpr std::wstring_view Letters{L"abcABZ \t\r\n\u00E9\u4E2D"};
    static const wchar_t* Argument(std::wstring_view part) { return part.data(); } // zero-terminated
};

template <class String>
String Part(const String& text, int index, int count) {
    const auto from = static_cast<std::size_t>(std::clamp(index, 0, static_cast<int>(text.size())));
    return count > 0 ? text.substr(from, static_cast<std::size_t>(count)) : String();
}
template <class String>
String Cased(String text, char first, char last, int distance) {
    for (auto& c : text) {
        if (c >= first && c <= last)
            c = static_cast<typename String::value_type>(c + distance);
    }
    return text;
}
template <class String>
String Replaced(const String& text, const String& from, const String& to, int& count) {
    String result;
    std::size_t start = 0;
    count = 0;
    for (std::size_t found; !from.empty() && (found = text.find(from, start)) != String::npos; ++count) {
        result += text.substr(start, found - start) + to;
        start = found + from.size();
    }
    return result + text.substr(start);
}
int Index(std::size_t position) {
    return position == std::string::npos ? -1 : static_cast<int>(position);
}
int Sign(int value) {
    return value < 0 ? -1 : value > 0;
}

template <class Kind>
class StringModel : public testing::Test {};
using Kinds = testing::Types<Narrow, Wide>;
TYPED_TEST_SUITE(StringModel, Kinds, );

} // namespace

// Every operation on random texts and on standard strings. Every second argument is a part of the text itself.
TYPED_TEST(StringModel, IsWhatAStandardStringIs) {
    using Text = typename TypeParam::Text;
    using View = std::remove_cv_t<decltype(TypeParam::Letters)>;
    using Char = typename View::value_type;
    using Model = std::basic_string<Char>;
    constexpr bool IsWide = std::is_same_v<TypeParam, Wide>;
    constexpr auto B = static_cast<Char>('b');
    const Model blanks(TypeParam::Letters.substr(6, 4));
    std::mt19937 random(17);
    const auto upTo = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned int>(limit + 1)); };
    const auto make = [&](int mostLetters) {
        Model text(static_cast<std::size_t>(upTo(mostLetters)), Char());
        for (Char& c : text)
            c = TypeParam::Letters[static_cast<std::size_t>(upTo(11))];
        return text;
    };
    for (int step = 0; step < 6000; ++step) {
        const Model model = make(step % 4 == 0 ? 60 : 8);
        const Text text{View(model)};
        const int length = static_cast<int>(model.size());
        const int index = upTo(length + 4) - 2; // some lie outside
        const int count = upTo(length + 4) - 2;
        const auto at = static_cast<std::size_t>(std::clamp(index, 0, length));
        const auto most = static_cast<std::size_t>(std::max(count, 0));
        const bool isOwn = upTo(1) == 0;
        const Model other = !isOwn ? make(8) : IsWide ? model.substr(at) : Part(model, index, count);
        const auto c = static_cast<Char>("abA "[upTo(3)]);
        // Does it to a copy. What an operation gives is by default the new length.
        const auto changes = [&](auto change, const Model& expected, int expectedResult = -1) {
            Text changed = text;
            const View part = isOwn ? View(changed.Cstr() + at, other.size()) : View(other);
            const int result = change(changed, TypeParam::Argument(part));
            ASSERT_EQ(changed.View(), expected);
            ASSERT_EQ(changed.Cstr()[changed.GetLength()], Char());
            ASSERT_EQ(result, expectedResult >= 0 ? expectedResult : changed.GetLength());
        };
        const auto makes = [&](auto operation, const Model& expected) {
            changes([&](Text& t, auto part) { return (t = operation(t, part)).GetLength(); }, expected);
        };
        int replaced = 0;
        const Model cs(static_cast<std::size_t>(upTo(2)), c);
        const Model replacedText = Replaced(model, cs, other, replaced);
        changes([&](Text& t, auto part) { return t.Replace(cs.c_str(), part); }, replacedText, replaced);
        const Model withB = Replaced(model, Model(1, c), Model(1, B), replaced);
        changes([&](Text& t, auto) { return t.Replace(c, B); }, withB, c == B ? 0 : replaced);
        changes([&](Text& t, auto part) { return t.Insert(index, part); }, Model(model).insert(at, other));
        changes([&](Text& t, auto) { return t.Delete(index, count); }, Model(model).erase(at, most));
        makes([](Text& t, auto) { return t.TrimLeft(); }, Model(model).erase(0, model.find_first_not_of(blanks)));
        makes([](Text& t, auto) { return t.TrimRight(); }, Model(model).erase(model.find_last_not_of(blanks) + 1));
        makes([&](Text& t, auto) { return t.TrimLeft(c); }, Model(model).erase(0, model.find_first_not_of(c)));
        makes([&](Text& t, auto) { return t.TrimRight(c); }, Model(model).erase(model.find_last_not_of(c) + 1));
        makes([](Text& t, auto) { return t.MakeLower(); }, Cased(model, 'A', 'Z', 'a' - 'A'));
        makes([](Text& t, auto) { return t.MakeUpper(); }, Cased(model, 'a', 'z', 'A' - 'a'));
        makes([&](Text& t, auto) { return t.Left(count); }, Part(model, 0, count));
        makes([&](Text& t, auto) { return t.Mid(index); }, Part(model, index, length));
        makes([&](Text& t, auto) { return t.Mid(index, count); }, Part(model, index, count));
        // Of the wide text a negative count takes all, and one of all nothing.
        const int right = !IsWide ? count : count < 0 ? length : count >= length ? 0 : count;
        makes([&](Text& t, auto) { return t.Right(count); },
              Part(model, length - std::clamp(right, 0, length), length));
        makes([&](Text& t, auto part) { return t + c + Text(part) + t; }, model + c + other + model);
        makes([&](Text& t, auto) { return t += t; }, model + model);
        if (at < model.size()) {
            const Model set = Model(model).replace(at, 1, 1, c);
            makes([&](Text& t, auto) { return t.SetAt(static_cast<int>(at), c), t; }, set);
            ASSERT_EQ(text.GetAt(static_cast<int>(at)), model[at]);
        }
        if constexpr (IsWide) {
            makes([](Text& t, auto part) { return t += part; }, model + other);
            makes([](Text& t, auto) { return t.MakeInverse(); }, Model(model.rbegin(), model.rend()));
            makes([](Text& t, auto part) { return t.SpanIncluding(part); },
                  model.substr(0, model.find_first_not_of(other)));
            makes([](Text& t, auto part) { return t.SpanExcluding(part); },
                  model.substr(0, model.find_first_of(other)));
            makes([](Text& t, auto) { return t.TrimLeft(L"bZ"); },
                  Model(model).erase(0, model.find_first_not_of(L"bZ")));
            makes([](Text& t, auto) { return t.TrimRight(L"bZ"); },
                  Model(model).erase(model.find_last_not_of(L"bZ") + 1));
            changes([&](Text& t, auto) { return t.Insert(index, c, count); }, Model(model).insert(at, most, c));
            Model left = model;
            for (std::size_t i = 0; i < left.size(); ++i) { // what moves into its place is stepped over
                if (left[i] == c)
                    left.erase(i, 1);
            }
            changes([&](Text& t, auto) { return t.Remove(c); }, left, static_cast<int>(model.size() - left.size()));
        } else {
            makes([](Text& t, auto part) { return t.Append(part); }, model + other);
            makes([&](Text& t, auto part) { return t.Replace(index, count, part), t; },
                  Model(model).replace(at, most, other));
        }
        const auto part = TypeParam::Argument(isOwn ? View(text.Cstr() + at, other.size()) : View(other));
        const auto start = static_cast<std::size_t>(std::max(index, 0));
        ASSERT_EQ(text.Find(part, index), Index(model.find(other, start)));
        ASSERT_EQ(text.Find(c, index), Index(model.find(c, start)));
        ASSERT_EQ(text.ReverseFind(c), Index(model.rfind(c)));
        ASSERT_EQ(text.FindOneOf(Model{B, c}.c_str()), Index(model.find_first_of(Model{B, c})));
        ASSERT_EQ(Sign(text.Compare(part)), Sign(model.compare(other)));
        ASSERT_EQ(Sign(text.CompareNoCase(part)),
                  Sign(Cased(model, 'A', 'Z', 'a' - 'A').compare(Cased(other, 'A', 'Z', 'a' - 'A'))));
        const Text second{View(other)};
        ASSERT_TRUE((text == second) == (model == other) && (text < second) == (model < other) &&
                    (text >= second) == (model >= other));
        ASSERT_EQ(Model(text.begin(), text.end()), model);
    }
}

TEST(MBString, CarriesItsCharset) {
    KeldMBString text("a\0b", 3);
    text.SetCharset(KELDCharset::Big5);
    const KeldMBString other("x");
    for (const KeldMBString& made : {text.Mid(1), text.Left(1), text + other, text + 'x', "x" + text + "y"})
        EXPECT_EQ(made.GetCharset(), KELDCharset::Big5);
    EXPECT_EQ((other + text).GetCharset(), KELDCharset::Current);
    text = other;
    EXPECT_EQ(text.GetCharset(), KELDCharset::Current);
    text = "name";
    text.Format("%s-%0300d", text.Cstr(), 7); // itself an argument, and longer than any small buffer
    EXPECT_EQ(text.View(), "name-" + std::string(299, '0') + "7");
}

// Of each charset a character whose second byte is a letter when alone, from the charsets' own tables; where a charset
// has none, both bytes are characters of their own.
TEST(MBString, LeavesSecondBytesAlone) {
    const std::tuple<int, const char*, bool> cases[] = {
        {134, "\x81\x61", true},  {134, "\xFE\x61", true},    {136, "\xA4\x61", true},  {129, "\x81\x61", true},
        {130, "\x88\x61", true},  {54936, "\x81\x61", true},  {951, "\x87\x61", true},  {128, "\x81\x61", true},
        {128, "\xFC\x61", true},  {128, "\xE0\x61", true},    {128, "\x9F\x61", true},  {943, "\x81\x61", true},
        {128, "\xA0\x61", false}, {128, "\xDF\x61", false},   {134, "\x80\x61", false}, {134, "\xFF\x61", false},
        {0, "\x81\x61", false},   {51932, "\x8E\x61", false}, {250, "\xC3\x61", false}};
    for (const auto& [number, character, isOne] : cases) {
        for (const std::string before : {"", "a", "abcdefghijklmnopq"}) {
            KeldMBString text(before + character + "a");
            text.SetCharset(static_cast<KELDCharset::Charset>(number));
            const KeldMBString other = text;
            const auto at = static_cast<int>(before.size()) + 1;
            text.MakeUpper();
            EXPECT_EQ(text.GetAt(at), isOne ? 'a' : 'A') << number << ' ' << before;
            EXPECT_EQ(text.GetAt(at + 1), 'A');
            EXPECT_EQ(text.CompareNoCase(other), 0);
            text.SetAt(at, 'A');
            EXPECT_EQ(Sign(text.CompareNoCase(other)), isOne ? -1 : 0) << number << ' ' << before;
        }
    }
}

// Refused by their lengths, before any of it is looked at.
TEST(MBString, AnswersImpossibleLengths) {
    const AssertionLog assertions;
    KeldMBString text("ab");
    const std::string_view most(text.Cstr(), std::size_t{KeldMBString::MaxLength} - 1);
    text.Append(most);
    text.Insert(1, most);
    text.Replace(0, 1, std::string_view(text.Cstr(), most.size() + 1));
    EXPECT_EQ(text.Replace("b", std::string_view(text.Cstr(), most.size() + 1)), 0);
    EXPECT_EQ(text, "ab");
}

TEST(StringW, IsAKeyAndSplits) {
    EXPECT_EQ((std::unordered_set<QzStringW>{L"b", L"a", L"b"}.size()), 2U);
    EXPECT_TRUE(QzStringW(std::wstring_view(L"a\0b", 3)) > L"a");
    KeldArray<QzStringW> pieces;
    pieces.Add(L" ,");
    EXPECT_EQ(QzStringW(L"  a,,b ").Split(pieces, pieces[0]), 2);
    EXPECT_TRUE(pieces.GetSize() == 3 && pieces[1] == L"a" && pieces[2] == L"b");
    EXPECT_EQ(QzStringW(L" , ").Split(pieces, L", "), 0);
}

TEST(StringW, AnswersNullPointersAndBadIndices) {
    const AssertionLog assertions;
    const wchar_t* const null = nullptr;
    EXPECT_TRUE(QzStringW(null).IsEmpty() && QzStringW(null, 3).IsEmpty());
    QzStringW text = L"ab";
    text.SetAt(-1, L'x');
    text[2] = L'x';
    EXPECT_EQ(text.GetAt(2) + text[2] + text[std::uint64_t{1} << 40], 0);
    EXPECT_EQ(text.Replace(L"a", null) + text.Replace(null, L"a"), 0);
    EXPECT_EQ(text.Insert(0, L'x', std::numeric_limits<int>::max()), 2);
    EXPECT_TRUE(text == L"ab");
}
