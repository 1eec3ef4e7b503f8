#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <random>
#include <string>

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
    for (const char* name : {"", "a b", "a=b", "<a", "a>", "a/b", "a\\b", "?a", "a!", "a\"b", "'a", "a&b"}) {
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
