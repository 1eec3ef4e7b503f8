#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <random>
#include <type_traits>
#include <unordered_set>

#include "base/keldarray.h"
#include "base/kelddict.h"
#include "base/keldlist.h"
#include "base/keldmbstring.h"
#include "base/keldtime.h"
#include "support.h"

using namespace KELD;

// What must not compile: a number is no character.
template <class Left, class Right, class = void>
constexpr bool CanAdd = false;
template <class Left, class Right>
constexpr bool CanAdd<Left, Right, std::void_t<decltype(std::declval<Left>() + std::declval<Right>())>> = true;
template <class Left, class Right, class = void>
constexpr bool CanExtend = false;
template <class Left, class Right>
constexpr bool CanExtend<Left, Right, std::void_t<decltype(std::declval<Left>() += std::declval<Right>())>> = true;

static_assert(CanAdd<KeldMBString, char> && CanAdd<KeldMBString&, const char*> && CanAdd<const char*, KeldMBString&>);
static_assert(!CanAdd<KeldMBString, int> && !CanAdd<const KeldMBString&, long> && !CanAdd<KeldMBString, unsigned char>);
static_assert(CanExtend<KeldMBString&, char> && !CanExtend<KeldMBString&, int>);
static_assert(std::is_constructible_v<KeldMBString, char> && std::is_constructible_v<KeldMBString, char, int>);
static_assert(!std::is_constructible_v<KeldMBString, int> && !std::is_constructible_v<KeldMBString, int, int>);
static_assert(std::is_nothrow_copy_constructible_v<KeldMBString> && std::is_nothrow_move_constructible_v<KeldMBString>);
static_assert(std::is_convertible_v<KeldMBString, std::string_view> &&
              !std::is_convertible_v<std::string_view, KeldMBString>); // that would lose the charset

namespace {

class Random {
public:
    explicit Random(unsigned int seed) : m_engine(seed) {}
    int Upto(int limit) { return static_cast<int>(m_engine() % (static_cast<unsigned int>(limit) + 1)); }
    int Index(std::size_t length) { return Upto(static_cast<int>(length) + 4) - 2; } // some lie outside
    std::string Text() {
        std::string text(static_cast<std::size_t>(Upto(Upto(9) == 0 ? 40 : 4)), '\0');
        for (char& c : text)
            c = "abcAB \t\r\n\0\xE9"[Upto(10)];
        return text;
    }

private:
    std::mt19937 m_engine;
};

std::string Part(const std::string& text, int index, int count) {
    const auto from = static_cast<std::size_t>(std::clamp(index, 0, static_cast<int>(text.size())));
    return count > 0 ? text.substr(from, static_cast<std::size_t>(count)) : std::string();
}

int Index(std::size_t position) {
    return position == std::string::npos ? -1 : static_cast<int>(position);
}

std::string Lowered(std::string text) {
    for (char& c : text)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return text;
}

int Sign(int value) {
    return value < 0 ? -1 : value > 0;
}

} // namespace

// Random operations on a text and on a standard string. Every second argument is a part of the text itself.
TEST(MBString, IsWhatAStandardStringIs) {
    Random random(11);
    std::string model;
    KeldMBString text;
    text.SetCharset(KELDCharset::Ansi);
    for (int step = 0; step < 60000; ++step) {
        const int length = static_cast<int>(model.size());
        const int index = random.Index(model.size());
        const int count = random.Index(model.size());
        const std::string other = random.Upto(1) == 0 ? random.Text() : Part(model, index, count);
        const bool isOwn = random.Upto(1) == 0 && Part(model, index, count) == other;
        const std::string_view argument =
            isOwn ? text.View().substr(static_cast<std::size_t>(std::clamp(index, 0, length)), other.size())
                  : std::string_view(other);
        const char c = static_cast<char>("abA "[random.Upto(3)]);
        switch (random.Upto(16)) {
        case 0:
            model += other;
            text.Append(argument);
            break;
        case 1:
            model.insert(static_cast<std::size_t>(std::clamp(index, 0, length)), other);
            ASSERT_EQ(text.Insert(index, argument), model.size());
            break;
        case 2:
            model.erase(static_cast<std::size_t>(std::clamp(index, 0, length)),
                        static_cast<std::size_t>(std::max(count, 0)));
            ASSERT_EQ(text.Delete(index, count), model.size());
            break;
        case 3:
            model.replace(static_cast<std::size_t>(std::clamp(index, 0, length)),
                          static_cast<std::size_t>(std::max(count, 0)), other);
            text.Replace(index, count, argument);
            break;
        case 4: {
            const std::string from = random.Text();
            std::string result;
            int replaced = 0;
            std::size_t at = 0;
            while (!from.empty() && model.find(from, at) != std::string::npos) {
                result += model.substr(at, model.find(from, at) - at) + other;
                at = model.find(from, at) + from.size();
                ++replaced;
            }
            model = result + model.substr(at);
            ASSERT_EQ(text.Replace(std::string_view(from), argument), replaced);
            break;
        }
        case 5:
            ASSERT_EQ(text.Replace(c, 'b'), c == 'b' ? 0 : std::count(model.begin(), model.end(), c));
            std::replace(model.begin(), model.end(), c, 'b');
            break;
        case 6:
            model.erase(0, model.find_first_not_of(" \t\r\n"));
            text.TrimLeft();
            break;
        case 7:
            model.erase(model.find_last_not_of(" \t\r\n") + 1);
            text.TrimRight();
            break;
        case 8:
            model.erase(0, model.find_first_not_of(c));
            model.erase(model.find_last_not_of(c) + 1);
            text.TrimLeft(c).TrimRight(c);
            break;
        case 9:
            if (index >= 0 && index < length) {
                model[static_cast<std::size_t>(index)] = c;
                text.SetAt(index, c);
                ASSERT_EQ(text.GetAt(index), c);
            }
            break;
        case 10:
            model = Lowered(model);
            text.MakeLower();
            break;
        case 11:
            for (char& letter : model)
                letter = letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 32) : letter;
            text.MakeUpper();
            break;
        case 12:
            model = Part(model, index, count);
            text = text.Mid(index, count);
            break;
        case 13:
            model = Part(model, length - std::clamp(count, 0, length), length);
            text = text.Right(count);
            break;
        case 14: {
            const auto start = static_cast<std::size_t>(std::max(index, 0));
            ASSERT_EQ(text.Find(argument, index), Index(model.find(other, start)));
            ASSERT_EQ(text.Find(c, index), Index(model.find(c, start)));
            ASSERT_EQ(text.ReverseFind(c), Index(model.rfind(c)));
            ASSERT_EQ(text.FindOneOf("bA"), Index(model.find_first_of("bA")));
            break;
        }
        case 15:
            ASSERT_EQ(Sign(text.Compare(argument)), Sign(model.compare(other)));
            ASSERT_EQ(Sign(text.CompareNoCase(argument)), Sign(Lowered(model).compare(Lowered(other))));
            ASSERT_EQ(text.Left(count).View(), Part(model, 0, count));
            ASSERT_EQ(text < KeldMBString(argument), model < other);
            ASSERT_EQ(std::string(text.begin(), text.end()), model);
            break;
        default:
            model = other + c + model;
            text = KeldMBString(argument) + c + text;
            text.SetCharset(KELDCharset::Ansi);
        }
        if (model.size() > 300) {
            model.erase(20);
            text = text.Left(20);
        }
        ASSERT_EQ(text.View(), model) << "step " << step;
        ASSERT_EQ(text.Cstr()[text.GetLength()], '\0');
        ASSERT_EQ(text.GetCharset(), KELDCharset::Ansi);
    }
}

TEST(MBString, CarriesItsCharset) {
    KeldMBString text("a\0b", 3);
    text.SetCharset(KELDCharset::Big5);
    const KeldMBString other("x");
    EXPECT_EQ(other.GetCharset(), KELDCharset::Current);
    for (const KeldMBString& made : {text.Mid(1), text.Left(1), text + other, text + "x", text + 'x', "x" + text,
                                     "x" + text + "y", KeldMBString(text)})
        EXPECT_EQ(made.GetCharset(), KELDCharset::Big5);
    EXPECT_EQ((other + text).GetCharset(), KELDCharset::Current);
    text.Empty();
    EXPECT_EQ(text.GetCharset(), KELDCharset::Big5);
    text = other;
    EXPECT_EQ(text.GetCharset(), KELDCharset::Current);
    EXPECT_EQ(KeldMBString(static_cast<const char*>(nullptr)) + KeldMBString("abc", -1) + KeldMBString('c', -1), "");
    EXPECT_EQ(text.Find(static_cast<const char*>(nullptr), 1), 1);
    EXPECT_EQ((std::unordered_set<KeldMBString>{"a", "b", "a"}.size()), 2U);
    EXPECT_EQ(std::string_view("x"), text);
    text = "name";
    text.Format("%s-%0300d", text.Cstr(), 7); // itself an argument, and longer than any small buffer
    EXPECT_EQ(text.View(), "name-" + std::string(299, '0') + "7");
}

// Of each charset a character whose second byte is a letter when alone, from the charsets' own tables; where a charset
// has none, both bytes are characters of their own.
TEST(MBString, LeavesSecondBytesAlone) {
    const std::tuple<int, const char*, bool> cases[] = {
        {134, "\x81\x61", true},  {134, "\xFE\x61", true},    {136, "\xA4\x61", true},   {129, "\x81\x61", true},
        {130, "\x88\x61", true},  {130, "\xF9\x61", true},    {54936, "\x81\x61", true}, {951, "\x87\x61", true},
        {128, "\x81\x61", true},  {128, "\xFC\x61", true},    {128, "\xE0\x61", true},   {128, "\x9F\x61", true},
        {128, "\xA0\x61", false}, {128, "\xDF\x61", false},   {134, "\x80\x61", false},  {134, "\xFF\x61", false},
        {0, "\x81\x61", false},   {51932, "\x8E\x61", false}, {250, "\xC3\x61", false},
    };
    for (const auto& [number, character, isOne] : cases) {
        for (const std::string before : {"", "a", "abcdefghijklmnopq"}) {
            KeldMBString text(before + character + "a");
            text.SetCharset(static_cast<KELDCharset::Charset>(number));
            KeldMBString other = text;
            const auto at = static_cast<int>(before.size()) + 1;
            text.MakeUpper();
            EXPECT_EQ(text.GetAt(at), isOne ? 'a' : 'A') << number << ' ' << before;
            EXPECT_EQ(text.GetAt(at + 1), 'A');
            EXPECT_EQ(text.CompareNoCase(other), 0);
            other.SetAt(at, 'A');
            EXPECT_EQ(Sign(other.CompareNoCase(text)), isOne ? -1 : 0) << number << ' ' << before;
            text.MakeLower();
            other.MakeLower();
            EXPECT_EQ(other.GetAt(at), isOne ? 'A' : 'a');
        }
    }
}

TEST(MBString, AnswersBadIndicesAndImpossibleLengths) {
    AssertionLog assertions;
    KeldMBString text("ab");
    EXPECT_EQ(text.GetAt(2) + text[-1], 0);
    text.SetAt(2, 'c');
    // Refused by their lengths, before any of it is looked at.
    const std::string_view most(text.Cstr(), std::size_t{KeldMBString::MaxLength} - 1);
    text.Append(most);
    text.Insert(1, most);
    text.Replace(0, 1, std::string_view(text.Cstr(), std::size_t{KeldMBString::MaxLength}));
    EXPECT_EQ(text.Replace("b", std::string_view(text.Cstr(), std::size_t{KeldMBString::MaxLength})), 0);
    EXPECT_EQ(text + KeldMBString(std::string_view(text.Cstr(), most.size() + 2)), "ab");
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(AssertionLog::Texts().size(), 8U);
}

// Random operations on the containers and their standard models. Arguments are often elements of the container.
TEST(Containers, AreWhatTheirModelsAre) {
    Random random(5);
    KeldArray<KeldMBString> array;
    std::vector<std::string> arrayModel;
    KeldList<KeldMBString> list;
    std::deque<std::string> listModel;
    KeldDict<KeldMBString, KeldMBString> dict;
    std::map<std::string, std::string> dictModel;
    const auto equal = [](const auto& items, const auto& model) {
        return std::equal(items.begin(), items.end(), model.begin(), model.end(),
                          [](const KeldMBString& a, const std::string& b) { return a.View() == b; });
    };
    for (int step = 0; step < 20000; ++step) {
        const KeldMBString item(random.Text() + (step % 3 == 0 ? "and so long that it lies on the heap" : ""));
        const auto size = static_cast<int>(arrayModel.size());
        const int index = size != 0 ? random.Upto(size - 1) : 0;
        const KeldMBString& own = size != 0 && random.Upto(1) == 0 ? array[index] : item;
        const std::string value(own.View());
        switch (random.Upto(5)) {
        case 0:
            arrayModel.push_back(value);
            ASSERT_EQ(array.Add(own), size);
            break;
        case 1:
            arrayModel.insert(arrayModel.begin() + index, value);
            array.InsertAt(index, own);
            break;
        case 2:
            if (size != 0) {
                arrayModel[static_cast<std::size_t>(index)] = value;
                array.SetAt(index, own);
            }
            break;
        case 3: {
            const int count = random.Upto(size - index);
            arrayModel.erase(arrayModel.begin() + index, arrayModel.begin() + index + count);
            array.RemoveAt(index, count);
            break;
        }
        case 4:
            arrayModel.resize(static_cast<std::size_t>(random.Upto(20)));
            array.SetSize(static_cast<int>(arrayModel.size()));
            break;
        default: {
            const KeldArray<KeldMBString> copy = array;
            array.RemoveAll();
            array = copy;
            ASSERT_TRUE(array == copy);
        }
        }
        ASSERT_TRUE(equal(array, arrayModel)) << step;

        const KeldMBString& ownInList = !listModel.empty() && random.Upto(1) == 0 ? list.GetTail() : item;
        const std::string listed(ownInList.View());
        switch (random.Upto(4)) {
        case 0:
            listModel.push_front(listed);
            list.AddHead(ownInList);
            break;
        case 1:
            listModel.push_back(listed);
            list.AddTail(ownInList);
            break;
        case 2:
            if (!listModel.empty()) {
                ASSERT_EQ(list.RemoveHead().View(), listModel.front());
                listModel.pop_front();
            }
            break;
        case 3: {
            const auto found = std::find(listModel.begin(), listModel.end(), listed);
            ASSERT_EQ(list.Remove(ownInList), found != listModel.end());
            if (found != listModel.end())
                listModel.erase(found);
            break;
        }
        default:
            if (!listModel.empty()) {
                ASSERT_EQ(list.RemoveTail().View(), listModel.back());
                listModel.pop_back();
            }
        }
        ASSERT_TRUE(equal(list, listModel) && list.GetCount() == static_cast<int>(listModel.size())) << step;

        const std::string key(1, static_cast<char>('a' + random.Upto(9)));
        switch (random.Upto(3)) {
        case 0: {
            const KeldMBString& ownValue = !dictModel.empty() ? dict.begin()->second : item;
            dictModel[key] = std::string(ownValue.View());
            dict.SetAt(KeldMBString(key), ownValue);
            break;
        }
        case 1:
            dictModel[key] = std::string(item.View());
            dict.SetAt(KeldMBString(key), item);
            break;
        case 2: ASSERT_EQ(dict.RemoveKey(KeldMBString(key)), dictModel.erase(key) != 0); break;
        default: {
            const auto known = dictModel.find(key);
            KeldMBString found("kept");
            ASSERT_EQ(dict.Lookup(KeldMBString(key), found), known != dictModel.end());
            ASSERT_EQ(found.View(), known != dictModel.end() ? known->second : "kept");
            ASSERT_EQ(dict[KeldMBString(key)].View(), known != dictModel.end() ? known->second : "");
        }
        }
        ASSERT_TRUE(
            std::equal(dict.begin(), dict.end(), dictModel.begin(), dictModel.end(), [](const auto& a, const auto& b) {
                return a.first.View() == b.first && a.second.View() == b.second;
            }));
    }
}

TEST(Containers, AnswerBadIndicesAndImpossibleSizes) {
    AssertionLog assertions;
    KeldArray<int> array;
    array.SetSize(2);
    array[7] = 9;
    EXPECT_EQ(array[7], 0); // what was written out of range is not kept
    array.InsertAt(4, 1);
    array.RemoveAt(2, 2);
    array.SetSize(-1);
    EXPECT_EQ(array.GetSize(), 2);
    struct Large {
        char bytes[std::numeric_limits<std::ptrdiff_t>::max() / 64]; // so large that no allocator is asked
    };
    KeldArray<Large> large;
    large.SetSize(std::numeric_limits<int>::max());
    EXPECT_EQ(large.GetSize(), 0);
    EXPECT_EQ(KeldList<int>().RemoveHead(), 0);
    EXPECT_EQ(AssertionLog::Texts().size(), 7U);
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
        {"UTF-99", -1},          {"iso-8859-12", -1},   {"UTF-8 ", -1},         {"Big5-HKSCS", 951},
        {"iso-2022-jp", 50220},  {"ibm437", 437},       {"CP866", 866},         {"utf-7", 65000},
        {"UTF@8", -1},           {"{TF-8", -1},         {"utf-16", 70000},      {"a name of more bytes than any", -1},
    };
    for (const auto& [name, number] : cases)
        EXPECT_EQ(KeldSystem::GetCharset(name), number) << name;
    for (const int length : {6, 7})
        EXPECT_EQ(KeldSystem::GetCharset(KeldMBString("UTF-8\0x", length)), KELDCharset::Unknown);
    EXPECT_EQ(KeldSystem::GetCharsetName(KELDCharset::Japanese), "WINDOWS-31J");
    EXPECT_EQ(KeldSystem::GetCharsetName(KELDCharset::Korean), "CP949");
    EXPECT_EQ(KeldSystem::GetCharsetName(KELDCharset::Nordic), "WINDOWS-1252");
}

TEST(Charsets, TheCurrentOneCanBeSet) {
    const CurrentCharset current(KELDCharset::GB2312);
    EXPECT_EQ(KeldSystem::GetCharsetName(KELDCharset::Current), "GBK");
    EXPECT_TRUE(KeldSystem::IsLeadByte(KELDCharset::Current, 0x81));
    // Without a name, or wide: text would be lost.
    for (const int number : {1, -1, 99, 132, 251, 252, 253, 254, 1200, 1201, 37, 1140, 70000, 70001})
        EXPECT_FALSE(KeldSystem::SetCurCharset(static_cast<KELDCharset::Charset>(number))) << number;
    EXPECT_EQ(KeldSystem::GetCurCharset(), KELDCharset::GB2312);
    EXPECT_EQ(KeldSystem::GetCharsetName(static_cast<KELDCharset::Charset>(99)), "");
}

TEST(Time, TellsDatesThatThereAre) {
    KeldTime time(5);
    for (const char* text :
         {"2021-02-30", "2021-02-29", "1900-02-29", "2021-04-31", "2021-00-01", "2021-01-00", "x", ""})
        EXPECT_EQ(time.Parse("%Y-%m-%d", text), 0) << text;
    EXPECT_EQ(time.GetTime(), 5);
    EXPECT_EQ(time.Parse("%Y-%m-%d", "2020-02-29!"), 10);
    EXPECT_EQ(time.GetMonth() * 100 + time.GetDay(), 229);
    EXPECT_EQ(KeldTime(2021, 3, 0, 0, 0, 0).GetDay(), 28); // counts on, as it says
    constexpr std::int64_t Last = std::numeric_limits<std::int64_t>::max();
    for (const std::int64_t seconds : {Last, -Last - 1}) {
        const KeldTime end(seconds);
        EXPECT_TRUE(end.GetDay() >= 1 && end.GetDay() <= 31 && end.GetMonth() >= 1 && end.GetMonth() <= 12);
        EXPECT_EQ(end.GetYear() > 0, seconds > 0);
    }
    constexpr int Most = std::numeric_limits<int>::max();
    EXPECT_EQ(KeldTime(-Most - 1, -Most - 1, 1, 0, 0, 0).GetTime(), 0);
    KeldTime(Most, Most, Most, Most, Most, Most).GetYear();
    KeldTime(-Most - 1 + 1900, 1, 1, 0, 0, 0).GetYear();
}
