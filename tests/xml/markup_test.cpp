#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <iterator>
#include <utility>

#include "support.h"
#include "xml/markup_records.h"

using namespace Qzc;
using namespace std::string_literals;

namespace {

// ---- Parsing

TEST(Markup, TellsWhatIsWrongWithAText) {
    const std::pair<std::string, std::vector<const char*>> cases[] = {
        {"Element tag not found", {"text", "<?xml version='1.0'?><!-- <a/> -->"}},
        {"", {nullptr, ""}},
        {"Abrupt end within tag", {"<"}},
        {"End of tag not found", {"<a", "<a><b c=\"</a>"}},
        {"Tag starts with quote", {"<'a'/>", "<a>< \"b\"/></a>"}},
        {"Invalid node", {"<!-- <a/>", "<?xml <a/>", "<!DOCTYPE a [ <!ELEMENT a ANY> <a/>", "<a><![CDATA[ </a>"}},
        {"End tag of a element not found", {"<a><b/>text"}},
        {"End tag of long:name-1. element not found", {"<a><long:name-1. x='1'>"}},
        {"Expecting end tag of element a", {"<a><=></a>"}},
        {"End tag does not correspond to a", {"<a></ab>"}},
        {"End tag does not correspond to b", {"<a><b></a></b>"}},
        {"End tag does not correspond to ab", {"<ab></a ></ab>", "<ab></a></ab>"}},
        {"End tag not completed for element a", {"<a><", "<a></a", "<a></a b>"}},
    };
    QzMarkup markup;
    for (const auto& [error, docs] : cases) {
        for (const char* const doc : docs) {
            EXPECT_FALSE(markup.SetDoc(doc) || markup.IsWellFormed());
            EXPECT_EQ(markup.GetError(), (error.empty() ? error : ", " + error).c_str()) << doc;
            EXPECT_EQ(markup.GetDoc(), doc != nullptr ? doc : "");
            EXPECT_FALSE(markup.FindElem() || markup.IntoElem() || markup.FindChildElem());
        }
    }
    EXPECT_TRUE(markup.SetDoc("<a/>"));
    EXPECT_TRUE(markup.GetError().IsEmpty());

    // A message is formatted into 300 bytes, the last of which is the terminator.
    const std::string name(400, 'n');
    EXPECT_FALSE(markup.SetDoc(("<" + name + ">").c_str()));
    EXPECT_EQ(markup.GetError(), (", End tag of " + name.substr(0, 299 - 11)).c_str());
}

TEST(Markup, ScansWhatMayStandInADocument) {
    const std::array<const char*, 3> cases[] = {
        // the document, its top element's markup and that one's own text
        {"\xEF\xBB\xBF<a/>", "<a/>", ""},
        {"<a>t</a> behind <", "<a>t</a>", "t"},
        {"< a x='1' ><b/></ a >", "< a x='1' ><b/></ a >", ""},
        {"<a b='>' c=\"/>'\">t</a>", "<a b='>' c=\"/>'\">t</a>", "t"},
        {"<a b='1'\">\">t</a>", "<a b='1'\">\">t</a>", "t"},
        {"<a b=x'>t</a>", "<a b=x'>t</a>", "t"},
        {"<a>it's \"> t</a>", "<a>it's \"> t</a>", "it's \"> t"},
        {"<!-- <b> ' -- > --><a/><!-- -->", "<a/>", ""},
        {"<?pi <b> ' ?><a>1<?pi </a> ?>2</a>", "<a>1<?pi </a> ?>2</a>", "12"},
        {"<a>1<!-- </a> -->2<b>no</b>3<![CDATA[<&amp;]] >]]>&lt;<b/>4</a>",
         "<a>1<!-- </a> -->2<b>no</b>3<![CDATA[<&amp;]] >]]>&lt;<b/>4</a>", "123<&amp;]] ><4"},
        {"<a><![CDATA[]]></a>", "<a><![CDATA[]]></a>", ""},
        {"<!DOCTYPE a><a/>", "<a/>", ""},
        {"<!DOCTYPE a PUBLIC '><b/>' \"'><b/>\"><a/>", "<a/>", ""}, // text before the top element would be skipped
        {"<!DOCTYPE a [ > <b/> ]><a/>", "<a/>", ""},
        {"<!DOCTYPE a [ <!-- it's ]> \" --> <!ENTITY e '<b/>'> ]><a/>", "<a/>", ""},
        {"<!DOCTYPE a [\n<!ELEMENT a (#PCDATA)>\n<!ENTITY e ']><b/>' >\n<?pi ]> ' ?>\n"
         "<![IGNORE[ <!ENTITY f \"<b>\"> ]]>\n] ><a/>",
         "<a/>", ""},
        {"<a>1<!DOCTYPE b [ <!ENTITY c '</a>'> ]>2</a>", "<a>1<!DOCTYPE b [ <!ENTITY c '</a>'> ]>2</a>", "12"},
    };
    for (const auto& [doc, top, data] : cases) {
        SCOPED_TRACE(doc);
        QzMarkup markup(doc);
        ASSERT_TRUE(markup.FindElem("a")) << markup.GetError();
        EXPECT_EQ(markup.GetSubDoc(), top);
        EXPECT_EQ(markup.GetData(), data);
    }
}

// The second byte of these characters is that of a backslash, which otherwise ends a name.
TEST(Markup, ReadsNamesOfTwoByteCharacters) {
    const std::pair<KELDCharset::Charset, const char*> names[] = {
        {KELDCharset::Japanese, "\x95\x5C"}, {KELDCharset::Big5, "\xA5\x5C"}, {KELDCharset::GB2312, "\x81\x5C"}};
    for (const auto& [charset, bytes] : names) {
        CurrentCharset current(charset);
        std::string doc = "<N N=N\"x>N</N>";
        for (std::size_t at = 0; (at = doc.find('N', at)) != std::string::npos;)
            doc.replace(at, 1, bytes);
        CheckedMarkup markup(doc.c_str());
        ASSERT_TRUE(markup.FindElem()) << markup.GetError().Cstr();
        EXPECT_EQ(markup.GetTagName(), bytes);
        EXPECT_EQ(markup.GetData(), bytes);
        EXPECT_EQ(markup.GetAttrib(bytes), KeldMBString(bytes) + "\"x");
        const std::string half(bytes, 1);
        EXPECT_FALSE(QzMarkup(("<" + half + "\\x></" + half + ">").c_str()).IsWellFormed());
        EXPECT_TRUE(markup.AddChildElem(bytes, bytes) && markup.SetChildAttrib(bytes, bytes));
        EXPECT_TRUE(markup.RecordsMatchText());
    }
}

TEST(Markup, ResolvesReferences) {
    const std::pair<std::string, const char*> cases[] = {
        {"&lt;&amp;&gt;&apos;&quot;", "<&>'\""},
        {"&amp;lt;&#38;lt;", "&lt;&lt;"},
        {"&&amp;&unknown;&LT;&lt &", "&&&unknown;&LT;&lt &"},
        {"&#65;&#x41;&#x6a;&#x6A;", "AAjj"},
        {"&#0000065;&#x0000041;", "AA"},
        {"&#00000065;&#x00000041;&#1234567890;", "&#00000065;&#x00000041;&#1234567890;"},
        {"&#65", "&#65"},
        {"&#12 text &#65;", "&#12 text A"},
        {"&#127;&#128;&#233;", "\x7F\xC2\x80\xC3\xA9"},
        {"&#2047;&#2048;&#x20AC;", "\xDF\xBF\xE0\xA0\x80\xE2\x82\xAC"},
        {"&#x10041;", "\xE0\x81\x81"}, // the bits above the sixteenth are lost
    };
    for (const auto charset : {KELDCharset::UTF8, KELDCharset::ISO8859_1}) {
        CurrentCharset current(charset);
        for (const auto& [text, data] : cases) {
            QzMarkup markup(("<a b='" + text + "'>" + text + "</a>").c_str());
            ASSERT_TRUE(markup.FindElem());
            EXPECT_EQ(markup.GetData(), data);
            EXPECT_EQ(markup.GetAttrib("b"), data);
        }
    }
}

TEST(Markup, ReadsAttributes) {
    const std::pair<const char*, AttributeList> cases[] = {
        {"<a b=\"1\" c='2'/>", {{"b", "1"}, {"c", "2"}}},
        {"<a b = \"x y\"\n\tc\r\n=\n'\"'>", {{"b", "x y"}, {"c", "\""}}},
        {"<a b=\"c='0'\" c='&lt;>'/>", {{"b", "c='0'"}, {"c", "<>"}}},
        {"<a b c=1 d=/>", {{"b", ""}, {"c", "1"}, {"d", ""}}},
        {"<a b=\"1\"'>'c='2'>", {{"b", "1"}, {"c", "2"}}},
        {"<a x:b-1.='' bb='2' b='3'>", {{"x:b-1.", ""}, {"bb", "2"}, {"b", "3"}}},
        {"<a a-name-without-value b='2'>", {{"a-name-without-value", ""}, {"b", "2"}}},
        {"<a b c='2'/>", {{"b", ""}, {"c", "2"}}},
        {"<a / b='1'>", {{"b", "1"}}},
        {"<a bb\"1\" c='2'/>", {{"bb\"1\"", ""}, {"c", "2"}}},
    };
    for (std::size_t i = 0; i < 2 * std::size(cases); ++i) { // what stands far from the text's end is read by blocks
        const auto& [tag, expected] = cases[i / 2];
        SCOPED_TRACE(tag);
        const bool isEmpty = tag[std::strlen(tag) - 2] == '/';
        const std::string element = tag + std::string(isEmpty ? "" : "</a>");
        QzMarkup markup(("<top>" + element + "</top>" + std::string(i % 2 * 64, ' ')).c_str());
        ASSERT_TRUE(markup.FindElem() && markup.FindChildElem());
        EXPECT_EQ(Attributes(markup, true), expected);
        EXPECT_TRUE(markup.GetChildAttribName(static_cast<int>(expected.size())).IsEmpty());
        EXPECT_TRUE(markup.GetChildAttribName(-1).IsEmpty());
        EXPECT_TRUE(markup.GetChildAttrib("absent").IsEmpty() && markup.GetChildAttrib(nullptr).IsEmpty());
        EXPECT_TRUE(markup.IntoElem());
        EXPECT_EQ(Attributes(markup, false), expected);
    }
}

// ---- Sizes

TEST(Markup, NestsAMillionDeep) {
    constexpr int Depth = 1000000;
    std::string opening;
    std::string closing;
    for (int i = 0; i < Depth; ++i) {
        opening += "<a>";
        closing += "</a>";
    }
    QzMarkup markup;
    EXPECT_FALSE(markup.SetDoc((opening + closing.substr(4)).c_str()));
    EXPECT_EQ(markup.GetError(), ", End tag of a element not found");
    ASSERT_TRUE(markup.SetDoc((opening + "<b>t</b>" + closing).c_str()));
    QzMarkup copy(markup);
    EXPECT_EQ(WalkAll(markup), Depth + 1);
    int depth = 0;
    for (; copy.FindElem("a"); ++depth)
        copy.IntoElem();
    ASSERT_TRUE(copy.FindElem("b") && copy.SetData("changed"));
    for (; copy.OutOfElem(); --depth) {
    }
    EXPECT_EQ(depth, 0);
    EXPECT_EQ(copy.GetSubDoc(), (opening + "<b>changed</b>" + closing).c_str());
    EXPECT_TRUE(copy.SetData("")); // releases all below
    EXPECT_EQ(copy.GetDoc(), "<a></a>");
}

} // namespace
