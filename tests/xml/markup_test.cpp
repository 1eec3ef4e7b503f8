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

TEST(Markup, TellsWhatIsWrongWithATextAndWhere) {
    struct Case {
        const char* error;
        const char* doc;
        int line; // where the message's tag, node or element starts; 0 for nowhere
        int column;
    };
    const Case cases[] = {
        {"Element tag not found", "one\ntwo", 2, 4},
        {"Element tag not found", "<?xml version='1.0'?><!-- <a/> -->", 1, 35},
        {"", nullptr, 0, 0},
        {"", "", 0, 0},
        {"Abrupt end within tag", "<", 1, 1},
        {"End of tag not found", "<a", 1, 1},
        {"End of tag not found", "\n<a>\n  <b c=\"</a>", 3, 3},
        {"Tag starts with quote", "<'a'/>", 1, 1},
        {"Tag starts with quote", "<a>< \"b\"/></a>", 1, 4},
        {"Invalid node", "<!-- <a/>", 1, 1},
        {"Invalid node", "<?xml <a/>", 1, 1},
        {"Invalid node", "<!DOCTYPE a [ <!ELEMENT a ANY> <a/>", 1, 1},
        {"Invalid node", "<a>\n<![CDATA[ </a>", 2, 1},
        {"End tag of a element not found", "<a><b/>text", 1, 1},
        {"End tag of b element not found", "<a>\n\n <b>\n  <c>t</c>\n", 3, 2},
        {"End tag of long:name-1. element not found", "<a><long:name-1. x='1'>", 1, 4},
        {"Expecting end tag of element a", "<a><=></a>", 1, 4},
        {"End tag does not correspond to a", "<a></ab>", 1, 4},
        {"End tag does not correspond to b", "<a>\r\n  <b></a></b>", 2, 6},
        {"End tag does not correspond to ab", "<ab></a ></ab>", 1, 5},
        {"End tag does not correspond to ab", "<ab></a></ab> and much more behind", 1, 5},
        {"End tag not completed for element a", "<a><", 1, 4},
        {"End tag not completed for element a", "<a>\n</a", 2, 1},
        {"End tag not completed for element a", "<a></a b>", 1, 4},
    };
    QzMarkup markup;
    for (const auto& [error, doc, line, column] : cases) {
        SCOPED_TRACE(doc != nullptr ? doc : "null");
        EXPECT_FALSE(markup.SetDoc(doc) || markup.IsWellFormed());
        EXPECT_EQ(markup.GetError(), *error != '\0' ? KeldMBString(", ") + error : KeldMBString());
        EXPECT_EQ(markup.GetDoc(), doc != nullptr ? doc : "");
        EXPECT_FALSE(markup.FindElem() || markup.IntoElem() || markup.FindChildElem());
        int foundLine = 0;
        int foundColumn = 0;
        EXPECT_EQ(markup.GetErrorPosition(foundLine, foundColumn) != 0, line != 0);
        EXPECT_EQ(std::pair(foundLine, foundColumn), std::pair(line, column));
    }
    int none = 0;
    EXPECT_TRUE(markup.SetDoc("<a/>"));
    EXPECT_TRUE(markup.GetError().IsEmpty() && !markup.GetErrorPosition(none, none));

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

// The second byte of this character is that of a backslash, which otherwise ends a name.
TEST(Markup, ReadsNamesOfTwoByteCharacters) {
    CurrentCharset current(KELDCharset::Japanese);
    CheckedMarkup markup("<\x95\\ \x95\\=\x95\\\"x><\x95\\\x95\\/>\x95\\</\x95\\>");
    ASSERT_TRUE(markup.FindElem() && markup.FindChildElem("\x95\\\x95\\")) << markup.GetError();
    EXPECT_EQ(markup.GetTagName() + markup.GetData(), "\x95\\\x95\\");
    EXPECT_EQ(markup.GetAttrib("\x95\\"), "\x95\\\"x");
    EXPECT_FALSE(QzMarkup("<\x95\\x></\x95>").IsWellFormed());
    EXPECT_TRUE(QzMarkup("<\x95\x95\\x></\x95\x95>").IsWellFormed()); // where it is a backslash
    EXPECT_TRUE(markup.AddChildElem("\x95\\", "\x95\\") && markup.SetChildAttrib("\x95\\", 1));
    EXPECT_TRUE(markup.RecordsMatchText());
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
        {"<a b = \"x y\"\n\tc\r\n=\n'\"'>", {{"b", "x y"}, {"c", "\""}}},
        {"<a b c=1 d=/>", {{"b", ""}, {"c", "1"}, {"d", ""}}},
        {"<a b=\"1\"'>'c='2'>", {{"b", "1"}, {"c", "2"}}},
        {"<a x:b-1.='' bb='2' b='3'>", {{"x:b-1.", ""}, {"bb", "2"}, {"b", "3"}}},
        {"<a / b='1'>", {{"b", "1"}}},
        {"<a 1='x' a;='y' -=\"z\"/>", {{"1", "x"}, {"a;", "y"}, {"-", "z"}}}, // none that is written
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
    EXPECT_TRUE(markup.SetDoc("<a/>"));
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
