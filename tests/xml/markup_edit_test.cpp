#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <tuple>

#include "support.h"
#include "xml/markup_records.h"
#include "xml/repeated_text.h"

using namespace Qzc;

namespace {

struct Edit {
    const char* doc;
    std::function<bool(CheckedMarkup&)> apply; // with the top element as the main one
    const char* expected; // the text after it, with ^ where the child, or else the main element, starts
};

TEST(MarkupEdit, WritesTheTextOfEachKind) {
    const Edit edits[] = {
        // ---- Elements
        {"<p/>", [](auto& m) { return m.AddChildElem("c"); }, "<p>\r\n^<c/>\r\n</p>"},
        {"<p></p>", [](auto& m) { return m.AddChildElem("c", "a<b"); }, "<p>^<c>a&lt;b</c>\r\n</p>"},
        {"<p a='1' />", [](auto& m) { return m.InsertChildElem("c"); }, "<p a='1'>\r\n^<c/>\r\n</p>"},
        {"<p / />", [](auto& m) { return m.AddChildElem("c"); }, "<p>\r\n^<c/>\r\n</p>"},
        {"<p>\n <c/>\n <d/>\n</p>", [](auto& m) { return m.AddChildElem("e"); }, "<p>\n <c/>\n <d/>\n^<e/>\r\n</p>"},
        {"<p>\n<c/>\n<d/>\n</p>", [](auto& m) { return m.FindChildElem("d") && m.InsertChildElem("e"); },
         "<p>\n<c/>\n^<e/>\r\n<d/>\n</p>"},
        {"<p><c/>t<d/></p>", [](auto& m) { return m.IntoElem() && m.FindElem("d") && m.InsertElem("e", "1"); },
         "<p><c/>t^<e>1</e>\r\n<d/></p>"},
        {"<p/>", [](auto& m) { return m.IntoElem() && m.AddElem("e") && m.AddElem("f"); },
         "<p>\r\n<e/>\r\n^<f/>\r\n</p>"},
        // ---- Markup
        {"<p/>", [](auto& m) { return m.AddChildSubDoc("<!--c--><x a=\"1\"/>t<y><z/></y>"); },
         "<p>\r\n<!--c--><x a=\"1\"/>t^<y><z/></y>\r\n</p>"},
        {"<p></p>", [](auto& m) { return m.AddChildSubDoc("<?xml version=\"1.0\"?>\r\n<x/>"); }, "<p>^<x/>\r\n</p>"},
        {"<p>old<q/></p>", [](auto& m) { return m.SetRealData("a &amp; <b>c</b>"); }, "^<p>a &amp; <b>c</b></p>"},
        // ---- Data
        {"<p>old<q/></p>", [](auto& m) { return m.SetData("<&>'\""); }, "^<p>&lt;&amp;&gt;'\"</p>"},
        {"<p/>", [](auto& m) { return m.SetData("<&]]", 1); }, "^<p><![CDATA[<&]]]]></p>"},
        {"<p/>", [](auto& m) { return m.SetData("a]]>b", 1); }, "^<p>a]]&gt;b</p>"},
        // ---- Attributes
        {"<p/>", [](auto& m) { return m.AddAttrib("a", "<&>'\""); }, "^<p a=\"&lt;&amp;&gt;&apos;&quot;\"/>"},
        {"<p a='1' >x</p>", [](auto& m) { return m.SetAttrib("b", -7); }, "^<p a='1' b=\"-7\" >x</p>"},
        {"<p a='1' b='2'/>", [](auto& m) { return m.SetAttrib("a", ""); }, "^<p a=\"\" b='2'/>"},
        {"<p a/>", [](auto& m) { return m.SetAttrib("a", "1"); }, "^<p a=\"1\"/>"},
        {"<p a= />", [](auto& m) { return m.SetAttrib("b", "1"); }, "^<p a=\"\" b=\"1\" />"},
        {"<p><c/><d/></p>",
         [](auto& m) { return m.FindChildElem("d") && m.AddChildAttrib("a", 5) && m.SetChildAttrib("a", 6); },
         "<p><c/>^<d a=\"6\"/></p>"},
        // ---- Removal
        {"<p>\r\n  <c/>\r\n  <d>1</d>  \r\n</p>", [](auto& m) { return m.FindChildElem("d") && m.RemoveChildElem(); },
         "<p>\r\n  ^<c/>\r\n</p>"},
        {"<p>\n<c/><d/>\n</p>", [](auto& m) { return m.FindChildElem("d") && m.RemoveChildElem(); },
         "<p>\n^<c/>\n</p>"},
        {"<p><c/><d/></p>", [](auto& m) { return m.IntoElem() && m.FindElem() && m.RemoveElem() && !m.RemoveElem(); },
         "<p><d/></p>"},
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
    markup.FindElem();
    markup.FindChildElem();
    const KeldMBString doc = markup.GetDoc();
    for (const char* name : {"", "a b", "a=b", "<a", "a>", "a/b", "a\\b", "?a", "a!", "a\"b", "'a", "a&b", "1", "-",
                             ".a", "a;", "a\x01", "\x7F", "a$"}) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(markup.AddChildElem(name) || markup.InsertChildElem(name, "x"));
        EXPECT_FALSE(markup.SetAttrib(name, "x") || markup.SetChildAttrib(name, 1));
    }
    EXPECT_FALSE(markup.AddElem("second") || markup.InsertElem("second") || markup.AddSubDoc("<second/>"));
    for (const char* text :
         {"", "no element", "<x>", "</x>", "<x></y>", "<x/><", "<x/></p><p>", "<!-- <x/>", "<x/><![CDATA["}) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(markup.AddChildSubDoc(text) || markup.InsertChildSubDoc(text));
    }
    for (const char* text : {"<x>", "</p><p>", "<", "<!--", "<x a='></x>"})
        EXPECT_FALSE(markup.SetRealData(text)) << text;
    EXPECT_EQ(markup.GetDoc(), doc);
    EXPECT_EQ(markup.GetChildTagName(), "c");
    EXPECT_TRUE(markup.GetError().IsEmpty());

    QzMarkup nowhere("<p/>"); // no main element
    EXPECT_FALSE(nowhere.AddChildElem("c") || nowhere.SetData("x") || nowhere.SetRealData("x") ||
                 nowhere.SetAttrib("a", "1") || nowhere.SetChildData("x") || nowhere.RemoveElem() ||
                 nowhere.RemoveChildElem());
    EXPECT_EQ(nowhere.GetDoc(), "<p/>");

    QzMarkup malformed("<p");
    EXPECT_FALSE(malformed.AddElem("q"));
    EXPECT_EQ(malformed.GetDoc(), "<p");
    EXPECT_EQ(malformed.GetError(), ", End of tag not found");
}

// What a name may not be in what is written, or a value by its length, does not keep it from being read.
TEST(MarkupEdit, ReadsNamesThatItDoesNotWrite) {
    QzMarkup markup("<1 a;='x' -=\"y\"><$/></1>");
    ASSERT_TRUE(markup.FindElem("1"));
    EXPECT_EQ(markup.GetAttrib("a;"), "x");
    EXPECT_EQ(markup.GetAttribValue(1), "y");
    EXPECT_TRUE(markup.FindChildElem("$") && markup.AddChildSubDoc("<2/>") && markup.SetData("z"));
    EXPECT_EQ(markup.GetDoc(), "<1 a;='x' -=\"y\">z</1>");
}

TEST(MarkupEdit, RefusesWhatIsTooLong) {
    CheckedMarkup markup("<p><c/></p>");
    ASSERT_TRUE(markup.FindElem() && markup.FindChildElem());
    {
        const RepeatedText text(static_cast<std::size_t>(QzMarkup::MaxValueLength) + 1);
        EXPECT_FALSE(markup.SetAttrib("a", text.Cstr()) || markup.AddChildElem("e", text.Cstr()) ||
                     markup.SetData(text.Cstr()) || markup.SetChildData(text.Cstr(), 1));
        EXPECT_FALSE(markup.AddChildElem(text.Cstr()) || markup.SetAttrib(text.Cstr(), "1"));
    }
    const RepeatedText text(std::size_t{1} << 31);
    EXPECT_FALSE(markup.SetRealData(text.Cstr()) || markup.AddChildSubDoc(text.Cstr()) || markup.SetDoc(text.Cstr()));
    EXPECT_FALSE(markup.GetError().IsEmpty());
    EXPECT_EQ(markup.GetDoc(), "<p><c/></p>");
    EXPECT_EQ(markup.GetChildTagName(), "c");
    EXPECT_TRUE(markup.RecordsMatchText());
}

TEST(MarkupEdit, CopiesAndTakesOverAllThatADocumentHolds) {
    QzMarkup source("<p a='1' b='2'><c/></p>");
    source.SetEncoding(KELDCharset::Big5);
    ASSERT_TRUE(source.FindElem());
    EXPECT_EQ(source.GetAttribCount(), 2);
    QzMarkup target("<x><y/></z>");
    EXPECT_EQ(target.GetError(), ", End tag does not correspond to x");
    const QzMarkup broken(target);
    EXPECT_EQ(broken.GetError(), target.GetError());
    int line = 0;
    int column = 0;
    EXPECT_TRUE(broken.GetErrorPosition(line, column));
    EXPECT_EQ(column, 8);

    const KeldMBString& doc = target.GetDoc(); // follows the document
    target = source;
    EXPECT_EQ(target.GetEncoding(), KELDCharset::Big5);
    EXPECT_EQ(doc, source.GetDoc());
    // Attributes that were numbered in one document are not those of another at the same place.
    QzMarkup other("<p c='3' d='4' e='5'/>");
    ASSERT_TRUE(other.FindElem());
    EXPECT_EQ(other.GetAttribCount(), 3);
    target = other;
    EXPECT_EQ(target.GetAttribCount(), 3);
    EXPECT_EQ(target.GetAttribName(1), "d");
    EXPECT_TRUE(target.SetDoc("<p f='6'/>") && target.FindElem());
    EXPECT_EQ(target.GetAttribCount(), 1);
    EXPECT_EQ(target.GetAttribName(0), "f");
    EXPECT_EQ(doc, "<p f='6'/>");
}

TEST(MarkupEdit, FindsAnotherTopElementBehindTheOneRemoved) {
    CheckedMarkup markup("<p><q/></p>\n<r><s/></r>");
    ASSERT_TRUE(markup.FindElem() && markup.SavePos("p") && markup.RemoveElem());
    EXPECT_TRUE(markup.IsWellFormed() && markup.RecordsMatchText());
    EXPECT_FALSE(markup.RestorePos("p"));
    EXPECT_TRUE(markup.FindElem("r") && markup.FindChildElem("s"));
}

// A position may be one before all children of an element: it goes when that element does.
TEST(MarkupEdit, ForgetsAPositionInsideARemovedElement) {
    QzMarkup markup("<p><c><x/></c><d/></p>");
    ASSERT_TRUE(markup.FindElem() && markup.FindChildElem("c") && markup.IntoElem() && markup.IntoElem());
    markup.ResetMainPos();
    ASSERT_TRUE(markup.SavePos("in c") && markup.OutOfElem() && markup.RemoveElem());
    EXPECT_FALSE(markup.RestorePos("in c"));
    EXPECT_TRUE(markup.FindElem("d") && markup.AddChildElem("new") && !markup.RestorePos("in c"));
}

/// A document whose free records can be counted.
class CountedMarkup : public CheckedMarkup {
public:
    using CheckedMarkup::CheckedMarkup;
    int NextFree() {
        const int iPos = GetFreePos();
        ReleasePos(iPos);
        return iPos;
    }
    int RemoveNothing() { return RemoveElem(0); }
};

TEST(MarkupEdit, GivesRecordsBackThatAFailedParseTook) {
    CountedMarkup markup("<p><c/></p>");
    ASSERT_TRUE(markup.FindElem());
    const int next = markup.NextFree();
    for (int i = 0; i < 100; ++i) {
        EXPECT_FALSE(markup.AddChildSubDoc("<x><y/><z/></x><w><v></w>"));
        EXPECT_FALSE(markup.SetRealData("<x/><y>"));
        EXPECT_TRUE(markup.AddChildSubDoc("<x><y/></x>") && markup.RemoveChildElem());
    }
    EXPECT_LE(markup.NextFree(), next + 2);
    EXPECT_EQ(markup.RemoveNothing(), 0);
    EXPECT_TRUE(markup.RecordsMatchText());
}

TEST(MarkupEdit, TellsWhereElementsAndErrorsStand) {
    const std::tuple<const char*, int, int> errors[] = {
        // where the message's tag, node or element starts
        {"", 0, 0},
        {"<a/>", 0, 0},
        {"one\ntwo", 2, 4},
        {"<a>\r\n  <b></c>\r\n</a>", 2, 6},
        {"<a>\n\n <b>\n  <c>t</c>\n", 3, 2},
        {"<a>\n<!-- </a>", 2, 1},
        {"\n<a>\n  <b c='</a>", 3, 3},
        {"<a>\n</a", 2, 1},
        {"<a><'b'/></a>", 1, 4},
    };
    for (const auto& [doc, line, column] : errors) {
        SCOPED_TRACE(doc);
        const QzMarkup markup(doc);
        int foundLine = 0;
        int foundColumn = 0;
        EXPECT_EQ(markup.GetErrorPosition(foundLine, foundColumn) != 0, line != 0);
        EXPECT_EQ(foundLine, line);
        EXPECT_EQ(foundColumn, column);
    }

    QzMarkup markup("<a>\n <b/>\n\xC3\xA9<c/>\n</a>");
    int line = 0;
    int column = 0;
    EXPECT_FALSE(markup.GetElemPosition(line, column));
    ASSERT_TRUE(markup.FindElem() && markup.FindChildElem("c"));
    EXPECT_TRUE(markup.GetElemPosition(line, column) && line == 1 && column == 1);
    EXPECT_TRUE(markup.GetChildElemPosition(line, column) && line == 3 && column == 3);
    EXPECT_TRUE(markup.IntoElem() && markup.InsertElem("new", "x\ny") && markup.FindElem("c"));
    EXPECT_TRUE(markup.GetElemPosition(line, column));
    EXPECT_EQ(line, 5);
    EXPECT_EQ(column, 1);
    markup.ResetMainPos();
    EXPECT_TRUE(markup.FindElem("b") && markup.SetAttrib("a", "1")); // and the text is in two pieces
    EXPECT_TRUE(markup.GetElemPosition(line, column) && line == 2 && column == 2);
}

TEST(MarkupEdit, PositionsOutliveEditsThatLeaveTheirElement) {
    QzMarkup markup("<p><c><x/></c><d><y/></d></p>");
    ASSERT_TRUE(markup.FindElem() && markup.SavePos("top") && markup.IntoElem());
    ASSERT_TRUE(markup.FindElem("c") && markup.FindChildElem("x") && markup.SavePos("x"));
    ASSERT_TRUE(markup.FindElem("d") && markup.FindChildElem("y") && markup.SavePos("y"));

    EXPECT_TRUE(markup.RestorePos("x"));
    EXPECT_TRUE(markup.SetAttrib("a", "grown") && markup.InsertElem("first", "text"));
    EXPECT_TRUE(markup.RestorePos("y"));
    EXPECT_EQ(markup.GetSubDoc(), "<d><y/></d>");
    EXPECT_EQ(markup.GetChildSubDoc(), "<y/>");

    // What is inside an element goes with it, and is unknown even when its record serves again.
    EXPECT_TRUE(markup.RestorePos("x") && markup.SetData("no child"));
    EXPECT_TRUE(markup.GetChildTagName().IsEmpty());
    EXPECT_TRUE(markup.AddChildElem("new"));
    EXPECT_FALSE(markup.RestorePos("x"));
    EXPECT_TRUE(markup.RestorePos("top") && markup.FindChildElem("d") && markup.RemoveChildElem());
    EXPECT_EQ(markup.GetChildTagName(), "c");
    EXPECT_FALSE(markup.RestorePos("y"));
    EXPECT_EQ(markup.GetTagName(), "p");
    EXPECT_TRUE(markup.RestorePos("top") && markup.SetDoc("<p/>"));
    EXPECT_FALSE(markup.RestorePos("top"));
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

TEST(MarkupEdit, BuildsAHundredThousandElements) {
    constexpr int Count = 100000;
    CheckedMarkup asMain("<p/>");
    CheckedMarkup asChild("<p></p>");
    asMain.FindElem();
    asMain.IntoElem();
    asChild.FindElem();
    for (int i = 0; i < Count; ++i) {
        ASSERT_TRUE(asMain.AddElem("e", "1") && asMain.SetAttrib("n", i));
        if (i % 3 == 0)
            asChild.ResetChildPos(); // the end must be found without walking there
        ASSERT_TRUE(asChild.AddChildElem("e", "1") && asChild.SetChildAttrib("n", i));
    }
    EXPECT_EQ(asMain.GetAttrib("n"), "99999");
    EXPECT_EQ(WalkAll(asMain), Count + 1);
    EXPECT_TRUE(asMain.RecordsMatchText());
    asMain.ResetPos();
    asMain.FindElem();
    EXPECT_EQ(asMain.GetSubDoc(), "<p>\r\n" + asChild.GetSubDoc().Mid(3));
}

} // namespace
