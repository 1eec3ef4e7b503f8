// Each operation of the text types, containers and streams is done again and again, and each time another of its
// allocations fails: nothing may be thrown, and what is left must be the old value or the new one, whole.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <thread>

#include "base/keldarray.h"
#include "base/kelddict.h"
#include "base/keldlist.h"
#include "stream/qzbytearray.h"
#include "stream/qzfile.h"
#include "stream/qzfilestream.h"
#include "stream/qztrace.h"
#include "support.h"
#include "text/failingallocation.h"
#include "toolkit/qzhash.h"
#include "toolkit/qzhashcode.h"
#include "toolkit/qzstringex.h"
#include "toolkit/qzstringucs2le.h"
#include "toolkit/qzstringutf8.h"
#include "toolkit/qzstringw.h"
#include "toolkit/qztextcodec.h"
#include "toolkit/qztoolkit.h"

using namespace Qzc;

namespace {

enum class Left { OldOrNew, OldNewOrEmpty };

template <class Value>
using Changes = std::vector<std::function<void(Value&)>>;

// Makes a new value of `before` with each of the changes. Each try has a thread of its own, which has kept nothing from
// texts before.
template <class Value>
void Exhaust(const Value& before, Left left, const Changes<Value>& changes) {
    for (const auto& change : changes) {
        SCOPED_TRACE(testing::Message() << "change " << &change - changes.data());
        Value after = before;
        change(after);
        ASSERT_FALSE(before == after) << "nothing to see";
        int failing = 1;
        for (bool isFailing = true; isFailing; ++failing) {
            ASSERT_LT(failing, 500);
            bool isThrown = false;
            Value value = before;
            Value again = before;
            std::thread([&] {
                FailAllocation(failing);
                try {
                    change(value);
                } catch (...) {
                    isThrown = true;
                }
                isFailing = StopFailing();
                change(again);
            }).join();
            ASSERT_FALSE(isThrown) << failing;
            ASSERT_TRUE(value == after || (isFailing && value == before) ||
                        (isFailing && left == Left::OldNewOrEmpty && value == Value()))
                << failing;
            ASSERT_TRUE(again == after) << failing;
        }
        EXPECT_GT(failing, 2) << "no allocation failed";
    }
}

const KeldMBString Long = "a text that is longer than what fits into a string itself";
const std::string Huge(20000, 'h');

class Memory : public testing::Test {
protected:
    AssertionLog m_assertions;
};

template <class Text>
void ExhaustText(const Text& brief, const Text& full) {
    Exhaust<Text>(brief, Left::OldOrNew,
                  {[&](Text& t) { t = full; }, [&](Text& t) { t += full; }, [&](Text& t) { t += t; },
                   [&](Text& t) { t.Insert(3, full); }, [&](Text& t) { t.Replace(brief.Left(1), full); }});
    Exhaust<Text>(full, Left::OldNewOrEmpty,
                  {[&](Text& t) { t = t + full; }, [&](Text& t) { t = brief.Left(1) + full; },
                   [&](Text& t) { t = t.Mid(4); }, [&](Text& t) { t.Insert(3, Text(full)); }});
}

} // namespace

TEST_F(Memory, OfTexts) {
    ExhaustText<KeldMBString>("e, but short", Long);
    const QzStringW wide(Long);
    ExhaustText<QzStringW>(L"e, but short", wide);
    using Text = KeldMBString;
    Exhaust<Text>(Long, Left::OldNewOrEmpty,
                  {[](Text& t) { t.Replace(1, 2, Long.View()); }, [](Text& t) { t.Format("%0300d", 7); },
                   [](Text& t) { t = Text('x', 100); },
                   [](Text& t) { t = QzToolkit::GetXmlFileHeader(KELDCharset::UTF8); }});
    Exhaust<QzStringW>(wide, Left::OldNewOrEmpty,
                       {[](QzStringW& t) { t.Insert(1, L'x', 99); }, [](QzStringW& t) { t = t.SpanExcluding(L"w"); }});
    using Pieces = KeldArray<QzStringW>;
    Exhaust<Pieces>(Pieces(), Left::OldOrNew, {[&](Pieces& pieces) { wide.Split(pieces, L" "); }});
}

TEST_F(Memory, OfConversions) {
    const KeldMBString chinese("\xD6\xD0\xCE\xC4\xD6\xD0\xCE\xC4");
    const KeldMBString huge{std::string_view(Huge)};
    const KeldMBString mixed = huge + chinese;
    constexpr auto GBK = KELDCharset::GB2312;
    constexpr auto UTF8 = KELDCharset::UTF8;
    using Text = KeldMBString;
    Exhaust<QzStringW>(L"old", Left::OldOrNew,
                       {[](QzStringW& t) { t.FromString(Long, UTF8); }, [&](QzStringW& t) { t.FromString(huge, UTF8); },
                        [&](QzStringW& t) { t.FromString(chinese, GBK); },
                        [&](QzStringW& t) { t.FromString(mixed, GBK); }});
    const QzStringW wide(L"\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587");
    Exhaust<Text>("old", Left::OldNewOrEmpty,
                  {[&](Text& t) { t = wide.ToString(GBK); }, [&](Text& t) { t = QzStringUTF8(chinese, GBK).Cstr(); },
                   [&](Text& t) { t = QzStringUTF8(Long, UTF8).ToString(KELDCharset::Big5); },
                   [&](Text& t) { t = QzStringUCS2LE(Long, UTF8).ToString(GBK); },
                   [&](Text& t) { t = QzStringUCS2LE(huge, UTF8).ToString(GBK); }});
    // The codec's own promise: the destination is left as it was.
    for (const auto charset : {UTF8, GBK}) {
        for (const KeldMBString& text : {Long, huge})
            Exhaust<Text>("old", Left::OldOrNew, {[&](Text& t) { QzTextCodec(UTF8, charset).Convert(t, text); }});
    }
    QzStringEx utf8(Long);
    utf8.SetCharset(UTF8);
    Exhaust<QzStringEx>(utf8, Left::OldNewOrEmpty, {[](QzStringEx& t) {
                            t += "\xE4\xB8\xAD";
                            t.ChangeCharset(GBK);
                            if (t.GetCharset() != GBK) // neither step or both
                                t = Long;
                        }});
    using Code = KeldArray<int>;
    Exhaust<Code>(Code(), Left::OldNewOrEmpty, {[](Code& code) {
                      QzHashCode::StringToHashCode("abc"); // another code then, that of an empty text
                      code.Add(1);
                  }});
}

TEST_F(Memory, OfContainers) {
    const KeldMBString key = Long + " as a key";
    using Array = KeldArray<KeldMBString>;
    Array array;
    for (int i = 0; i < 4; ++i)
        array.Add(Long);
    Array otherArray;
    otherArray.Add(key);
    Exhaust<Array>(array, Left::OldOrNew,
                   {[&](Array& a) { a.Add(key); }, [](Array& a) { a.Add(a[0]); }, [&](Array& a) { a.InsertAt(1, key); },
                    [&](Array& a) { a.SetAt(1, key); }, [](Array& a) { a.SetSize(1000); },
                    [&](Array& a) { a = otherArray; }});

    // Lists and tables are compared by what they hold in order.
    struct List : KeldList<KeldMBString> {
        bool operator==(const List& other) const { return std::equal(begin(), end(), other.begin(), other.end()); }
    };
    List list;
    for (int i = 0; i < 20; ++i)
        list.AddTail(Long);
    Exhaust<List>(list, Left::OldOrNew, {[&](List& l) { l.AddHead(key); }, [](List& l) { l.AddTail(l.GetHead()); }});
    Exhaust<List>(List(), Left::OldOrNew, {[&](List& l) { l.AddTail(key); }, [&](List& l) { l = list; }});

    const auto tables = [&](const auto& none) {
        using Table = std::decay_t<decltype(none)>;
        Table table = none;
        for (int i = 0; i < 12; ++i) {
            KeldMBString number;
            number.Format("%050d", i);
            table.SetAt(number, Long);
        }
        Exhaust<Table>(table, Left::OldOrNew,
                       {[&](Table& t) { t.SetAt(key, key); }, [&](Table& t) { t.SetAt(t.begin()->first, key); }});
        Exhaust<Table>(none, Left::OldOrNew, {[&](Table& t) { t.SetAt(key, key); }, [&](Table& t) { t = table; }});
    };
    struct Dict : KeldDict<KeldMBString, KeldMBString> {
        bool operator==(const Dict& other) const { return std::equal(begin(), end(), other.begin(), other.end()); }
    };
    tables(Dict());
    tables(QzHash<KeldMBString>());
}

TEST_F(Memory, OfStreamsAndFiles) {
    const ScratchDirectory scratch;
    // A system that has other names for long paths needs memory for it.
    std::string away = scratch.Path();
    for (int i = 0; i < 150; ++i)
        away += "/.";
    const KeldMBString path(away + "/file");
    WriteBytes(scratch / "file", Huge);
    SetTraceHandler([](const char*) {});
    // What a change made of the bytes or the file, as text.
    using Text = KeldMBString;
    Exhaust<Text>("old", Left::OldNewOrEmpty,
                  {[&](Text& t) {
                       QzFile file;
                       const bool isOpen = QzFile::IsExist(path) && file.Open(path, QzFile::Access::Read);
                       if (isOpen && !file.ReadAll(t) && t != "old")
                           t = "lost";
                   },
                   [](Text& t) {
                       QzByteArray bytes;
                       bytes << Long << QzStringUCS2LE(Long, KELDCharset::UTF8);
                       if (!bytes.IsGood())
                           return;
                       bytes.Seek(0);
                       bytes >> t;
                   },
                   [&](Text& t) {
                       QzFileStream stream(path, QzFile::Access::Read);
                       char head[4] = {};
                       if (stream.Read(head, 3) == 3)
                           t = head;
                   },
                   [&](Text& t) { t = QzFile::GetAbsolutePath(path, "../other\\name"); },
                   [](Text& t) {
                       qztrace("%0300d", 1);
                       t = "done";
                   }});
    SetTraceHandler(nullptr);
}
