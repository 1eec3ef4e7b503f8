#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <random>
#include <string>

#include "../../fuzz/xml_steps.h"
#include "support.h"
#include "xml/markup_records.h"

using namespace Qzc;

namespace {

struct Edit {
    const char* doc;
    std::function<bool(CheckedMarkup&)> apply; // with the top element as the main one
    const char* expected; // the text after it, with ^ where the child, or else the main element, starts
};

TEST(MarkupEdit, WritesTheTextOfEachKind) {
    const Edit edits[] = {
        {"<p a='1' />", [](auto& m) { return m.InsertChildElem("c"); }, "<p a='1'>\r\n^<c/>\r\n</p>"},
        {"<p / />", [](auto& m) { return m.AddChildElem("c", "a<b"); }, "<p>\r\n^<c>a&lt;b</c>\r\n</p>"},
        {"<p></p>", [](auto& m) { return m.AddChildSubDoc("<?xml version=\"1.0\"?>\r\n<x/>"); }, "<p>^<x/>\r\n</p>"},
        {"<p>old<q/></p>", [](auto& m) { return m.SetData("<&>'\""); }, "^<p>&lt;&amp;&gt;'\"</p>"},
        {"<p/>", [](auto& m) { return m.SetData("a]]>b", 1); }, "^<p>a]]&gt;b</p>"},
        {"<p/>", [](auto& m) { return m.AddAttrib("a", "<&>'\""); }, "^<p a=\"&lt;&amp;&gt;&apos;&quot;\"/>"},
        {"<p a='1' >x</p>", [](auto& m) { return m.SetAttrib("b", -7); }, "^<p a='1' b=\"-7\" >x</p>"},
        {"<p a/>", [](auto& m) { return m.SetAttrib("a", "1"); }, "^<p a=\"1\"/>"},
        {"<p a= />", [](auto& m) { return m.SetAttrib("b", "1"); }, "^<p a=\"\" b=\"1\" />"},
        {"<?pi?><p><c/></p>", [](auto& m) { return m.RemoveElem() && m.AddElem("q") && m.AddChildElem("r"); },
         "<?pi?><q>\r\n^<r/>\r\n</q>\r\n"},
    };
    for (const Edit& edit : edits) {
        SCOPED_TRACE(std::string(edit.doc) + " to " + edit.expected);
        CheckedMarkup markup(edit.doc);
        ASSERT_TRUE(markup.FindElem());
        EXPECT_TRUE(edit.apply(markup));
        const KeldMBString child = markup.GetChildSubDoc();
        const KeldMBString position = child.IsEmpty() ? markup.GetSubDoc() : child;
        KeldMBString doc = markup.GetDoc();
        doc.Replace(position, "^" + position);
        EXPECT_EQ(doc, edit.expected);
        EXPECT_TRUE(markup.RecordsMatchText());
    }
}

TEST(MarkupEdit, RefusesWhatCouldNotBeReadBack) {
    CheckedMarkup markup("<p a=\"1\"><c>t</c></p>");
    ASSERT_TRUE(markup.FindElem() && markup.FindChildElem());
    const KeldMBString doc = markup.GetDoc();
    for (const char* name : {"", "a b", "a=b", "<a", "a>", "a/b", "a\\b", "?a", "a!", "a\"b", "'a", "a&b", "1", "-",
                             ".a", "a;", "a\x01", "\x7F", "a$"}) {
        EXPECT_FALSE(markup.AddChildElem(name) || markup.InsertChildElem(name, "x")) << name;
        EXPECT_FALSE(markup.SetAttrib(name, "x") || markup.SetChildAttrib(name, 1)) << name;
    }
    EXPECT_FALSE(markup.AddElem("second") || markup.InsertElem("second") || markup.AddSubDoc("<second/>"));
    for (const char* text :
         {"", "no element", "<x>", "</x>", "<x></y>", "<x/><", "<x/></p><p>", "<!-- <x/>", "<x/><![CDATA["}) {
        EXPECT_FALSE(markup.AddChildSubDoc(text) || markup.InsertChildSubDoc(text)) << text;
    }
    for (const char* text : {"<x>", "</p><p>", "<", "<!--", "<x a='></x>"})
        EXPECT_FALSE(markup.SetRealData(text)) << text;
    EXPECT_EQ(markup.GetDoc(), doc);
    EXPECT_TRUE(markup.GetError().IsEmpty());

    QzMarkup nowhere("<p/>"); // no main element
    EXPECT_FALSE(nowhere.AddChildElem("c") || nowhere.SetData("x") || nowhere.SetRealData("x") ||
                 nowhere.SetAttrib("a", "1") || nowhere.SetChildData("x") || nowhere.RemoveElem() ||
                 nowhere.RemoveChildElem());
    QzMarkup malformed("<p");
    EXPECT_FALSE(malformed.AddElem("q"));
    EXPECT_EQ(malformed.GetDoc() + malformed.GetError(), "<p, End of tag not found");
}

TEST(MarkupEdit, KeepsTheRecordsThatAFreshParseGives) {
    const char* const docs[] = {
        "", "<a/>", "<a><b><c/></b><b z= / /><b q>&lt;<![CDATA[</b>]]></b></a>trailing <",
        "<?pi?>\n<!DOCTYPE a [ <!ENTITY e \"]>\"> ]>\n<a>\n  <b x='1'/>\n  t<c/>\n</a>\n<!-- end -->"};
    for (const auto charset : {KELDCharset::UTF8, KELDCharset::Japanese}) {
        CurrentCharset current(charset);
        for (unsigned seed = 1; seed <= 120; ++seed) {
            std::mt19937 random(seed);
            CheckedMarkup markup(docs[seed % std::size(docs)]);
            for (int step = 0; step < 120; ++step) {
                const KeldMBString before = markup.GetDoc();
                const std::string broken = RandomStep(markup, [&](unsigned n) { return random() % n; });
                ASSERT_TRUE(broken.empty() && markup.RecordsMatchText())
                    << broken << "\nseed " << seed << ", step " << step << ", from:\n"
                    << before.Cstr() << "\nto:\n"
                    << markup.GetDoc().Cstr();
            }
        }
    }
}

TEST(MarkupEdit, RefusesWhatIsTooLong) {
    CheckedMarkup markup("<p><c/></p>");
    ASSERT_TRUE(markup.FindElem() && markup.FindChildElem());
    const char* const value = RepeatedText(static_cast<std::size_t>(QzMarkup::MaxValueLength) + 1);
    EXPECT_FALSE(markup.SetAttrib("a", value) || markup.AddChildElem("e", value) || markup.SetData(value) ||
                 markup.SetChildData(value, 1) || markup.AddChildElem(value) || markup.SetAttrib(value, "1"));
    if (sizeof(void*) > 4) { // elsewhere nothing has more than half of all addresses
        const char* const text = RepeatedText(static_cast<std::size_t>(KeldMBString::MaxLength) + 1);
        EXPECT_FALSE(markup.SetRealData(text) || markup.AddChildSubDoc(text) || markup.SetDoc(text));
        EXPECT_EQ(markup.GetError(), "2147483648 bytes are too many for a document");
    }
    EXPECT_EQ(markup.GetDoc() + markup.GetChildTagName(), "<p><c/></p>c");
}

TEST(MarkupEdit, CopiesAndTakesOverAllThatADocumentHolds) {
    QzMarkup target("<x><y/></z>");
    const QzMarkup broken(target);
    int line = 0;
    int column = 0;
    EXPECT_EQ(broken.GetError(), ", End tag does not correspond to x");
    EXPECT_TRUE(broken.GetErrorPosition(line, column) && column == 8);

    // Attributes that were numbered in one document are not those of another at the same place.
    const KeldMBString& doc = target.GetDoc(); // follows the document
    const auto names = [&] {
        std::string found;
        for (target.FindElem(); found.size() < static_cast<std::size_t>(target.GetAttribCount());)
            found += target.GetAttribName(static_cast<int>(found.size())).Cstr();
        return found;
    };
    QzMarkup source("<p a='1' b='2'><c/></p>");
    source.SetEncoding(KELDCharset::Big5);
    target = source;
    EXPECT_EQ(target.GetEncoding(), KELDCharset::Big5);
    EXPECT_EQ(doc, source.GetDoc());
    EXPECT_EQ(names(), "ab");
    target = QzMarkup("<p c='3' d='4' e='5'/>");
    EXPECT_EQ(names(), "cde");
    EXPECT_TRUE(target.SetDoc("<p f='6'/>"));
    EXPECT_EQ(names(), "f");
    // Saving puts a declaration in front: what is read then is not what was noted, as a copy without notes shows.
    const ScratchDirectory directory;
    ASSERT_TRUE(target.Save((directory / "file.xml").c_str()));
    EXPECT_EQ(target.GetAttribCount(), QzMarkup(target).GetAttribCount());
    EXPECT_NE(target.GetAttribCount(), 1);
}

TEST(MarkupEdit, FindsAnotherTopElementBehindTheOneRemoved) {
    CheckedMarkup markup("<p><q/></p>\n<r><s/></r>");
    ASSERT_TRUE(markup.FindElem() && markup.SavePos("p") && markup.RemoveElem());
    EXPECT_TRUE(markup.IsWellFormed() && markup.RecordsMatchText());
    EXPECT_FALSE(markup.RestorePos("p"));
    EXPECT_TRUE(markup.FindElem("r") && markup.FindChildElem("s"));
    EXPECT_TRUE(markup.SavePos("s") && markup.SetDoc("<r><s/></r>"));
    EXPECT_FALSE(markup.RestorePos("s"));
}

/// A document whose records can be counted, once.
class CountedMarkup : public CheckedMarkup {
public:
    using CheckedMarkup::CheckedMarkup;
    int HighestRecord() {
        int highest = 0;
        for (int i = 0; i < 16; ++i) // more than have been given back
            highest = std::max(highest, GetFreePos());
        return highest;
    }
    int RemoveNothing() { return RemoveElem(0); }
};

TEST(MarkupEdit, GivesRecordsBackThatAFailedParseTook) {
    const auto highestAfter = [](int rounds) {
        CountedMarkup markup(("<p><c/></p>" + std::string(100000, ' ')).c_str()); // which takes many records at first
        EXPECT_TRUE(markup.FindElem());
        for (int i = 0; i < rounds; ++i) {
            EXPECT_FALSE(markup.AddChildSubDoc("<x><y/><z/></x><w><v></w>"));
            EXPECT_FALSE(markup.SetRealData("<x/><y>"));
            EXPECT_TRUE(markup.AddChildSubDoc("<x><y/></x>") && markup.RemoveChildElem());
        }
        EXPECT_EQ(markup.RemoveNothing(), 0);
        return markup.HighestRecord();
    };
    EXPECT_EQ(highestAfter(100), highestAfter(1));
    EXPECT_LT(highestAfter(1), 64);
}

// What is known of an element with many attributes must not be taken for true when it is not any more.
TEST(MarkupEdit, SetsManyAttributesOfOneElement) {
    std::mt19937 random(8);
    std::string behind = "<z";
    for (int i = 0; i < 100; ++i)
        behind += " a" + std::to_string(i) + "='z'";
    behind += "/></p>";
    for (int round = 0; round < 60; ++round) {
        const bool hasTwins = round % 3 == 0;
        // The second one stands behind what is set before the first.
        AttributeList expected = hasTwins ? AttributeList{{"a7", "1"}, {"a6", "2"}, {"a7", "3"}} : AttributeList();
        CheckedMarkup markup(((hasTwins ? "<p><q/><e a7='1' a6='2' a7='3'/>" : "<p><q/><e/>") + behind).c_str());
        ASSERT_TRUE(markup.FindElem() && markup.FindChildElem("e"));
        unsigned next = 0;
        for (int step = 0; step < 400; ++step) {
            if (random() % 199 == 0) { // another element in the same record
                std::string other = "<e";
                if (random() % 2 == 0)
                    expected.clear();
                for (auto& [name, value] : expected)
                    other += " " + (name = "b" + name) + "='" + value + "'";
                ASSERT_TRUE(markup.RemoveChildElem() && markup.AddChildSubDoc((other + "/>").c_str()));
            }
            next = static_cast<unsigned>(random() % 16 == 0 ? random() % 100 : next + 1);
            const std::string name = (random() % 64 == 0 ? "ba" : "a") + std::to_string(next % 100);
            const std::string value(random() % 64 == 0 ? 9000 : 2, static_cast<char>('a' + random() % 26));
            auto known = expected.begin();
            while (known != expected.end() && known->first != name)
                ++known;
            (known != expected.end() ? *known : expected.emplace_back(name, "")).second = value;
            ASSERT_TRUE(markup.SetChildAttrib(name.c_str(), value.c_str()));
            if (random() % 8 == 0) {
                ASSERT_EQ(markup.GetChildAttrib(name.c_str()).View(), value);
            }
        }
        const auto count = static_cast<unsigned>(expected.size());
        ASSERT_EQ(markup.GetChildAttribCount(), static_cast<int>(count));
        for (unsigned i = 0; i < 2 * count; ++i) { // in order and then in none
            const unsigned n = i < count ? i : static_cast<unsigned>(random() % count);
            ASSERT_EQ(markup.GetChildAttribNameView(static_cast<int>(n)), expected[n].first);
            ASSERT_EQ(markup.GetChildAttribValueView(static_cast<int>(n)), expected[n].second);
        }
        ASSERT_TRUE(markup.RecordsMatchText());
    }
}

} // namespace
