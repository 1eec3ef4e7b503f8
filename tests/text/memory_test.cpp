// Each operation of the text types, containers and streams is done again and again, and each time another of its
// allocations fails: nothing may be thrown, and what is left must be the old value or the new one, whole.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "base/keldarray.h"
#include "base/kelddict.h"
#include "base/keldlist.h"
#include "base/keldtime.h"
#include "stream/qzbytearray.h"
#include "stream/qzfile.h"
#include "stream/qzfilestream.h"
#include "stream/qztrace.h"
#include "support.h"
#include "text/failingmemory.h"
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

std::atomic<int> s_assertions{0};

// `make` gives the old value and `change` makes the new one of it. Each try has a thread of its own, which has kept
// nothing from texts before.
template <class Value>
void Exhaust(const char* name, const std::function<Value()>& make, const std::function<void(Value&)>& change,
             Left left = Left::OldOrNew) {
    SCOPED_TRACE(name);
    const Value before = make();
    Value after = make();
    change(after);
    ASSERT_FALSE(before == after) << "nothing to see";
    int failing = 1;
    for (bool isFailing = true; isFailing; ++failing) {
        ASSERT_LT(failing, 500);
        bool isThrown = false;
        bool isWhole = false;
        bool isRepeatable = false;
        std::thread([&] {
            Value value = make();
            s_assertions = 0;
            FailAllocation(failing);
            try {
                change(value);
            } catch (...) {
                isThrown = true;
            }
            isFailing = StopFailing();
            isWhole = value == after || (isFailing && value == before) ||
                      (isFailing && left == Left::OldNewOrEmpty && value == Value());
            Value again = make();
            change(again);
            isRepeatable = again == after;
        }).join();
        ASSERT_FALSE(isThrown) << failing;
        ASSERT_TRUE(isWhole) << failing;
        ASSERT_TRUE(isRepeatable) << failing;
    }
    EXPECT_GT(failing, 2) << "no allocation failed";
}

const char Long[] = "a text that is longer than what fits into a string itself";
const wchar_t LongWide[] = L"a text that is longer than what fits into a string itself";
const std::string Huge(20000, 'h');

KeldMBString Text() {
    return KeldMBString(Long);
}
QzStringW Wide() {
    return QzStringW(LongWide);
}

class Memory : public testing::Test {
protected:
    Memory() {
        SetAssertHandler([](const char*, const char*, int) { ++s_assertions; });
    }
    ~Memory() override { SetAssertHandler(nullptr); }
};

TEST_F(Memory, OfTexts) {
    using Change = std::function<void(KeldMBString&)>;
    const std::pair<const char*, Change> inPlace[] = {
        {"copy",
         [](KeldMBString& t) {
             t = KeldMBString(std::string_view(Huge)) != "" ? KeldMBString("new value, long enough for the heap") : t;
         }},
        {"append", [](KeldMBString& t) { t += Long; }},
        {"append itself", [](KeldMBString& t) { t += t; }},
        {"insert", [](KeldMBString& t) { t.Insert(3, Text()); }},
        {"replace", [](KeldMBString& t) { t.Replace("text", Long); }},
        {"replace bytes", [](KeldMBString& t) { t.Replace(1, 2, Long); }},
        {"format", [](KeldMBString& t) { t.Format("%0300d", 7); }},
    };
    for (const auto& [name, change] : inPlace)
        Exhaust<KeldMBString>(name, Text, change, Left::OldNewOrEmpty);
    static KeldMBString s_other;
    s_other = "another text, which is long enough as well";
    const std::pair<const char*, Change> strict[] = {
        {"assign", [](KeldMBString& t) { t = s_other; }},
        {"append view", [](KeldMBString& t) { t += s_other; }},
        {"insert other", [](KeldMBString& t) { t.Insert(3, s_other); }},
        {"append itself", [](KeldMBString& t) { t += t; }},
        {"replace by other", [](KeldMBString& t) { t.Replace("e", s_other); }},
    };
    for (const auto& [name, change] : strict)
        Exhaust<KeldMBString>(
            name, [] { return KeldMBString("e, but short"); }, change);
    const std::pair<const char*, Change> made[] = {
        {"join", [](KeldMBString& t) { t = t + s_other; }},
        {"join three", [](KeldMBString& t) { t = t + (t + s_other); }},
        {"mid", [](KeldMBString& t) { t = t.Mid(4); }},
        {"fill", [](KeldMBString& t) { t = KeldMBString('x', 100); }},
        {"name", [](KeldMBString& t) { t = QzToolkit::GetXmlFileHeader(KELDCharset::UTF8); }},
    };
    for (const auto& [name, change] : made) {
        if (std::string_view(name) != "join three") // two operations, of which the second is done without the first
            Exhaust<KeldMBString>(name, Text, change, Left::OldNewOrEmpty);
    }
}

TEST_F(Memory, OfWideTexts) {
    using Change = std::function<void(QzStringW&)>;
    static const KeldMBString s_mixed(Huge + "\xD6\xD0");
    static QzStringW s_other;
    s_other = L"another text, which is long enough as well";
    const std::pair<const char*, Change> strict[] = {
        {"assign", [](QzStringW& t) { t = s_other; }},
        {"append", [](QzStringW& t) { t += s_other; }},
        {"append itself", [](QzStringW& t) { t += t; }},
        {"insert", [](QzStringW& t) { t.Insert(1, LongWide); }},
        {"insert units", [](QzStringW& t) { t.Insert(1, L'x', 99); }},
        {"replace", [](QzStringW& t) { t.Replace(L"e", LongWide); }},
        {"from UTF-8", [](QzStringW& t) { t.FromString(Text(), KELDCharset::UTF8); }},
    };
    for (const auto& [name, change] : strict)
        Exhaust<QzStringW>(
            name, [] { return QzStringW(L"e, but short"); }, change,
            std::string_view(name) == "from UTF-8" ? Left::OldNewOrEmpty : Left::OldOrNew);
    const std::pair<const char*, Change> made[] = {
        {"join", [](QzStringW& t) { t = t + s_other; }},
        {"left", [](QzStringW& t) { t = t.Left(20); }},
        {"span", [](QzStringW& t) { t = t.SpanExcluding(L"w"); }},
        {"from GBK", [](QzStringW& t) { t.FromString(KeldMBString("\xD6\xD0\xCE\xC4\xD6\xD0"), KELDCharset::GB2312); }},
        {"from much GBK", [](QzStringW& t) { t.FromString(s_mixed, KELDCharset::GB2312); }},
    };
    for (const auto& [name, change] : made)
        Exhaust<QzStringW>(name, Wide, change, Left::OldNewOrEmpty);
    using Pieces = KeldArray<QzStringW>;
    Exhaust<Pieces>(
        "split", [] { return Pieces(); }, [](Pieces& pieces) { Wide().Split(pieces, L" "); });
}

TEST_F(Memory, OfConversions) {
    using Change = std::function<void(KeldMBString&)>;
    const auto source = [](const char* text) { return KeldMBString(text); };
    const std::pair<const char*, Change> made[] = {
        {"wide to GBK",
         [](KeldMBString& t) {
             t = QzStringW(L"\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587").ToString(KELDCharset::GB2312);
         }},
        {"UTF-8",
         [](KeldMBString& t) {
             t = QzStringUTF8(KeldMBString("\xD6\xD0\xCE\xC4\xD6\xD0\xD6\xD0"), KELDCharset::GB2312).Cstr();
         }},
        {"from UTF-8",
         [](KeldMBString& t) { t = QzStringUTF8(KeldMBString(Long), KELDCharset::UTF8).ToString(KELDCharset::Big5); }},
        {"units",
         [](KeldMBString& t) {
             t = QzStringUCS2LE(KeldMBString(Long), KELDCharset::UTF8).ToString(KELDCharset::GB2312);
         }},
        {"much",
         [](KeldMBString& t) {
             t = QzStringUCS2LE(KeldMBString(std::string_view(Huge)), KELDCharset::UTF8).ToString(KELDCharset::GB2312);
         }},
    };
    for (const auto& [name, change] : made)
        Exhaust<KeldMBString>(
            name, [&] { return source("old"); }, change, Left::OldNewOrEmpty);
    // The codec's own promise: the destination is left as it was.
    for (const auto charset : {KELDCharset::UTF8, KELDCharset::GB2312}) {
        for (const std::string_view text : {std::string_view(Long), std::string_view(Huge)}) {
            static KeldMBString s_text;
            s_text = KeldMBString(text);
            Exhaust<KeldMBString>(
                "codec", [&] { return source("old"); },
                [charset](KeldMBString& t) { QzTextCodec(KELDCharset::UTF8, charset).Convert(t, s_text); });
        }
    }
    Exhaust<QzStringEx>(
        "change charset",
        [] {
            QzStringEx text(Text());
            text.SetCharset(KELDCharset::UTF8);
            return text;
        },
        [](QzStringEx& t) {
            t += "\xE4\xB8\xAD";
            t.ChangeCharset(KELDCharset::GB2312);
            if (t.GetCharset() != KELDCharset::GB2312) // neither step or both
                t = Text();
        });
    using Code = KeldArray<int>;
    Exhaust<Code>(
        "hash code", [] { return Code(); },
        [](Code& code) {
            QzHashCode::StringToHashCode("abc"); // another code then, that of an empty text
            code.Add(1);
        },
        Left::OldNewOrEmpty);
}

TEST_F(Memory, OfContainers) {
    static const KeldMBString s_key = Text() + " as a key";
    using Array = KeldArray<KeldMBString>;
    const auto array = [] {
        Array items;
        for (int i = 0; i < 4; ++i)
            items.Add(Text());
        return items;
    };
    const std::pair<const char*, std::function<void(Array&)>> arrays[] = {
        {"add", [](Array& a) { a.Add(s_key); }},
        {"add its own", [](Array& a) { a.Add(a[0]); }},
        {"insert", [](Array& a) { a.InsertAt(1, s_key); }},
        {"set", [](Array& a) { a.SetAt(1, s_key); }},
        {"size", [](Array& a) { a.SetSize(1000); }},
        {"assign",
         [](Array& a) {
             static const Array s_other = [] {
                 Array items;
                 for (int i = 0; i < 3; ++i)
                     items.Add(s_key);
                 return items;
             }();
             a = s_other;
         }},
    };
    for (const auto& [name, change] : arrays)
        Exhaust<Array>(name, array, change);

    // Lists and tables are compared by what they hold in order.
    struct List : KeldList<KeldMBString> {
        bool operator==(const List& other) const { return std::equal(begin(), end(), other.begin(), other.end()); }
    };
    const auto list = [] {
        List items;
        for (int i = 0; i < 20; ++i)
            items.AddTail(Text());
        return items;
    };
    Exhaust<List>("head", list, [](List& l) { l.AddHead(s_key); });
    Exhaust<List>("tail", list, [](List& l) { l.AddTail(l.GetHead()); });
    Exhaust<List>(
        "first", [] { return List(); }, [](List& l) { l.AddTail(s_key); });
    Exhaust<List>(
        "assign", [] { return List(); },
        [&](List& l) {
            static const List s_other = list();
            l = s_other;
        });

    const auto table = [](auto items) {
        for (int i = 0; i < 12; ++i) {
            KeldMBString key;
            key.Format("%050d", i);
            items.SetAt(key, Text());
        }
        return items;
    };
    const auto tables = [&](const auto& none) {
        using Table = std::decay_t<decltype(none)>;
        const auto make = [&] { return table(none); };
        Exhaust<Table>("new", make, [](Table& t) { t.SetAt(s_key, s_key); });
        Exhaust<Table>(
            "first", [&] { return none; }, [](Table& t) { t.SetAt(s_key, s_key); });
        Exhaust<Table>("known", make, [](Table& t) { t.SetAt(t.begin()->first, s_key); });
        const Table other = make();
        Exhaust<Table>(
            "assign", [&] { return none; }, [&](Table& t) { t = other; });
    };
    struct Dict : KeldDict<KeldMBString, KeldMBString> {
        bool operator==(const Dict& other) const { return std::equal(begin(), end(), other.begin(), other.end()); }
    };
    tables(Dict());
    tables(QzHash<KeldMBString>());
}

TEST_F(Memory, OfStreamsAndFiles) {
    const ScratchDirectory scratch;
    const KeldMBString path(scratch / "file");
    WriteBytes(scratch / "file", Huge);
    // What a change made of the bytes or the file, as text.
    const auto none = [] { return KeldMBString("old"); };
    Exhaust<KeldMBString>("read all", none, [&](KeldMBString& t) {
        QzFile file;
        if (file.Open(path, QzFile::Access::Read))
            file.ReadAll(t);
    });
    Exhaust<KeldMBString>(
        "stream", none,
        [](KeldMBString& t) {
            QzByteArray bytes;
            bytes << Text() << QzStringUCS2LE(Text(), KELDCharset::UTF8);
            if (!bytes.IsGood())
                return;
            bytes.Seek(0);
            bytes >> t;
        },
        Left::OldNewOrEmpty);
    Exhaust<KeldMBString>("file stream", none, [&](KeldMBString& t) {
        QzFileStream stream(path, QzFile::Access::Read);
        char head[4] = {};
        if (stream.Read(head, 3) == 3)
            t = head;
    });
    Exhaust<KeldMBString>(
        "path", none, [&](KeldMBString& t) { t = QzFile::GetAbsolutePath(path, "../other\\name"); },
        Left::OldNewOrEmpty);
    Exhaust<KeldMBString>("time", none, [](KeldMBString& t) {
        KeldTime time;
        if (time.Parse("%Y-%m-%d %H:%M:%S", "2021-03-04 05:06:07") != 0)
            t = "read";
    });
    SetTraceHandler([](const char*) {});
    Exhaust<KeldMBString>("trace", none, [](KeldMBString& t) {
        qztrace("%0300d", 1);
        t = "";
    });
    SetTraceHandler(nullptr);
}

} // namespace
