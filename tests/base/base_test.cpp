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
#include "support.h"

using namespace KELD;

// Random operations on the containers and their standard models. Arguments are often elements of the container.
TEST(Containers, AreWhatTheirModelsAre) {
    std::mt19937 random(5);
    const auto upTo = [&](int limit) { return static_cast<int>(random() % (static_cast<unsigned int>(limit) + 1)); };
    KeldArray<KeldMBString> array;
    std::deque<std::string> arrayModel;
    KeldList<KeldMBString> list;
    std::deque<std::string> listModel;
    KeldDict<KeldMBString, KeldMBString> dict;
    std::map<std::string, std::string> dictModel;
    const auto same = [](const KeldMBString& a, const std::string& b) { return a.View() == b; };
    const auto equal = [&](const auto& items, const auto& model) {
        return std::equal(items.begin(), items.end(), model.begin(), model.end(), same);
    };
    for (int step = 0; step < 20000; ++step) {
        const KeldMBString item(std::string(static_cast<std::size_t>(upTo(40)), static_cast<char>('a' + upTo(3))));
        const auto size = static_cast<int>(arrayModel.size());
        const int index = upTo(std::max(size - 1, 0));
        const auto place = arrayModel.begin() + index;
        const KeldMBString& own = size != 0 && upTo(1) == 0 ? array[index] : item;
        const std::string value(own.View());
        const int operation = upTo(4);
        if (operation == 0) {
            arrayModel.insert(place, value);
            array.InsertAt(index, own);
        } else if (operation == 1 && size != 0) {
            *place = value;
            array.SetAt(index, own);
        } else if (operation == 2) {
            const int count = upTo(size - index);
            arrayModel.erase(place, place + count);
            array.RemoveAt(index, count);
        } else if (operation == 3 && step % 8 == 0) {
            arrayModel.resize(static_cast<std::size_t>(upTo(20)));
            array.SetSize(static_cast<int>(arrayModel.size()));
        } else {
            arrayModel.push_back(value);
            ASSERT_EQ(array.Add(own), size);
        }
        const KeldArray<KeldMBString> copy = array;
        ASSERT_TRUE(equal(copy, arrayModel) && copy == array) << step;

        const KeldMBString& ownInList = !listModel.empty() && upTo(1) == 0 ? list.GetTail() : item;
        const std::string listed(ownInList.View());
        const int listOperation = upTo(listModel.empty() ? 1 : 4);
        if (listOperation == 0) {
            listModel.push_front(listed);
            list.AddHead(ownInList);
        } else if (listOperation == 1) {
            listModel.push_back(listed);
            list.AddTail(ownInList);
        } else if (listOperation == 2) {
            ASSERT_EQ(list.RemoveHead().View(), listModel.front());
            listModel.pop_front();
        } else if (listOperation == 3) {
            ASSERT_EQ(list.RemoveTail().View(), listModel.back());
            listModel.pop_back();
        } else {
            const auto found = std::find(listModel.begin(), listModel.end(), listed);
            ASSERT_EQ(list.Remove(ownInList), found != listModel.end());
            if (found != listModel.end())
                listModel.erase(found);
        }
        ASSERT_TRUE(equal(list, listModel) && list.GetCount() == static_cast<int>(listModel.size())) << step;

        const std::string text(1, static_cast<char>('a' + upTo(9)));
        const KeldMBString key(text);
        const auto known = dictModel.find(text);
        const bool isKnown = known != dictModel.end();
        KeldMBString found("kept");
        ASSERT_EQ(dict.Lookup(key, found), isKnown);
        ASSERT_EQ(found.View(), isKnown ? known->second : "kept");
        const int dictOperation = upTo(2);
        if (dictOperation == 0) {
            const KeldMBString& ownValue = !dictModel.empty() ? dict.begin()->second : item;
            dictModel[text] = std::string(ownValue.View());
            dict.SetAt(key, ownValue);
        } else if (dictOperation == 1) {
            ASSERT_EQ(dict[key].View(), dictModel[text]);
            dictModel[text] = std::string(item.View());
            dict.SetAt(key, item);
        } else {
            ASSERT_EQ(dict.RemoveKey(key), dictModel.erase(text) != 0);
        }
        const auto samePairs = [&](const auto& a, const auto& b) {
            return same(a.first, b.first) && same(a.second, b.second);
        };
        ASSERT_TRUE(std::equal(dict.begin(), dict.end(), dictModel.begin(), dictModel.end(), samePairs)) << step;
    }
}

TEST(Containers, AnswerBadIndicesAndImpossibleSizes) {
    AssertionLog assertions;
    KeldArray<int> array;
    array.SetSize(2);
    array[7] = 9;
    EXPECT_EQ(array[7] + array[2], 0); // what was written out of range is not kept
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
    EXPECT_EQ(AssertionLog::Texts().size(), 8U);
}

namespace {

/// Tells whether its memory is its own until its end.
struct Marked {
    Marked() { ++s_living; }
    Marked(const Marked&) { ++s_living; }
    Marked& operator=(const Marked&) = default;
    ~Marked() {
        --s_living;
        for (const volatile unsigned& mark : marks)
            s_broken += mark != 0xA5A5A5A5 ? 1 : 0;
    }
    unsigned marks[4] = {0xA5A5A5A5, 0xA5A5A5A5, 0xA5A5A5A5, 0xA5A5A5A5};
    static inline std::atomic<int> s_living{0}, s_broken{0};
};

} // namespace

TEST(Containers, MissingElementsBelongToTheirThread) {
    SetAssertHandler([](const char*, const char*, int) {});
    KeldArray<std::string> array;
    KeldList<Marked> list;
    const auto use = [&] {
        for (int i = 0; i < 10; ++i) {
            std::string& text = array[i];
            EXPECT_TRUE(text.empty());
            text.assign(1000, 'a');
            list.GetHead() = Marked();
        }
    };
    for (int round = 0; round < 20; ++round)
        Together(use, use, use);
    SetAssertHandler(nullptr);
    EXPECT_EQ(Marked::s_broken, 0);
    EXPECT_EQ(Marked::s_living, 0);
}

TEST(Charsets, HaveNamesAndNumbers) {
    const std::pair<const char*, int> cases[] = {
        {"utf-8", 250},     {"GBK", 134},        {"Big5", 136},       {"Shift_JIS", 128}, {"windows-1253", 161},
        {"cp1254", 162},    {"macintosh", 77},   {"windows-1252", 0}, {"", -1},           {"iso-8859-15", 28605},
        {"gb18030", 54936}, {"US-ASCII", 20127}, {"koi8-r", 20866},   {"UTF-99", -1},     {"UTF-16LE", 1200},
        {"UTF-8 ", -1},     {"UTF@8", -1},       {"ibm939", 50939},   {"{TF-8", -1}};
    for (const auto& [name, number] : cases)
        EXPECT_EQ(KeldSystem::GetCharset(name), number) << name;
    EXPECT_EQ(KeldSystem::GetCharset("a name of more bytes than any"), KELDCharset::Unknown);
    for (const int length : {6, 7})
        EXPECT_EQ(KeldSystem::GetCharset(KeldMBString("UTF-8\0x", length)), KELDCharset::Unknown);
    const CurrentCharset current(KELDCharset::GB2312);
    EXPECT_EQ(KeldSystem::GetCharsetName(KELDCharset::Current), "GBK");
    EXPECT_TRUE(KeldSystem::IsLeadByte(KELDCharset::Current, 0x81));
    // Without a name, or wide: text would be lost.
    for (const int number : {1, -1, 99, 132, 251, 252, 253, 254, 1200, 1201, 37, 1140, 70000, 70001, 20106, 50939})
        EXPECT_FALSE(KeldSystem::SetCurCharset(static_cast<KELDCharset::Charset>(number))) << number;
    EXPECT_EQ(KeldSystem::GetCurCharset(), KELDCharset::GB2312);
}
