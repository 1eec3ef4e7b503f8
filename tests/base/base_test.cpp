#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <random>

#include "base/keldarray.h"
#include "base/kelddict.h"
#include "base/keldlist.h"
#include "base/keldmbstring.h"
#include "base/keldtime.h"
#include "support.h"

using namespace KELD;

namespace {

class Random {
public:
    explicit Random(unsigned int seed) : m_engine(seed) {}
    int Upto(int limit) { return static_cast<int>(m_engine() % (static_cast<unsigned int>(limit) + 1)); }
    std::string Text() {
        std::string text(static_cast<std::size_t>(Upto(Upto(9) == 0 ? 40 : 4)), '\0');
        for (char& c : text)
            c = "abcAB \t\r\n\0\xE9"[Upto(10)];
        return text;
    }

private:
    std::mt19937 m_engine;
};

} // namespace

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
        {"ibm939", 50939},       {"ISO646-DE", 20106},  {"EUCJP-MS", 70069},    {"IBM943", 943},
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
    for (const int number : {1, -1, 99, 132, 251, 252, 253, 254, 1200, 1201, 37, 1140, 70000, 70001, 20106, 50939})
        EXPECT_FALSE(KeldSystem::SetCurCharset(static_cast<KELDCharset::Charset>(number))) << number;
    EXPECT_EQ(KeldSystem::GetCurCharset(), KELDCharset::GB2312);
    EXPECT_EQ(KeldSystem::GetCharsetName(static_cast<KELDCharset::Charset>(99)), "");
}

TEST(Time, HoldsAnySecond) {
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
