#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "style/randomstyle.h"
#include "support.h"
#include "toolkit/qzstyle.h"

using namespace Qzc;

namespace {

constexpr int Dialect2003 = 20031211;

// Markup from words: "name=value" is an element, "name{" opens one and "}" closes it.
KeldMBString Document(const std::string& words) {
    std::string xml;
    std::vector<std::string> open;
    std::istringstream in(words);
    for (std::string word; in >> word;) {
        const std::string name = word.substr(0, word.find_first_of("={"));
        if (word == "}") {
            xml += "</zpl:" + open.back() + ">\r\n";
            open.pop_back();
        } else if (word.back() == '{') {
            xml += "<zpl:" + name + ">\r\n";
            open.push_back(name);
        } else {
            xml += "<zpl:" + name + ">" + word.substr(name.size() + 1) + "</zpl:" + name + ">\r\n";
        }
    }
    return KeldMBString(xml);
}

// As Set3D leaves them.
const std::string Fields3D =
    "PointSize=4.5 ColorPoint=RGBA(1.000000,0.000000,0.000000,0.200000)) LineWidth=0.25 Fill3DMode=FILL_FACEANDLINE "
    "ColorFill=RGBA(0.000000,0.000000,1.000000,0.000000)) "
    "LineColor=RGBA(0.000000,1.000000,0.000000,1.000000)) "
    "IconScale=1.5 TilingU=2.500000 TilingV=0.500000 TextureRepeatMode=RealSize TopTilingU=-2.500000 "
    "TopTilingV=3.000000 TopTextureRepeatMode=RepeatTimes IconName=ab SideTextureName=s TopTextureName=top "
    "BottomAltitude=1.5 ExtendHeight=2 AltitudeMode=Absolute IconAnchor{ x=1.0000000000 y=-2.0000000000 } "
    "FixedPixelSize=FALSE BillboardMode=FIXED_ANGLE IsMarker3D=TRUE LineStyle3D=LINE_PIPELINE PipeSides=7 "
    "IsFiletEnable=TRUE IsTessellate=FALSE ScaleX=1.500000 ScaleY=2.000000 ScaleZ=0.500000 "
    "RotateX=4.000000 RotateY=-2.000000 RotateZ=1.000000 ";

// As SetSymbols leaves them: of eight bytes the last four are not written.
const std::string Symbols =
    "CustomMarkerSymbol{ MarkerSymbolLength=5 MarkerSymbolVersion=-1 MarkerSymbolString=0102030405000000 } "
    "CustomLineSymbol{ LineSymbolLength=8 LineSymbolVersion=2 LineSymbolString=01020304 } "
    "CustomFillSymbol{ FillSymbolLength=1 FillSymbolVersion=3 FillSymbolString=01000000 } ";

} // namespace

TEST(StyleXml, TheCurrentDialectHasItsElementsInOrder) {
    const std::string fields =
        "MarkerStyle=0 MarkerSize=2.40 MarkerAngle=0.00 MarkerWidth=25 MarkerHeight=24 LineStyle=0 "
        "LineWidth=0.10 LineColor=RGB(255,0,0) FillStyle=0 FillForeColor=RGB(0,255,0) "
        "FillBackColor=RGB(255,255,255) FillBackOpaque=TRUE FillOpaqueRate=100 FillGradientType=None "
        "FillAngle=0.00 FillCenterOffsetX=-1 FillCenterOffsetY=0 ";
    QzStyle style;
    style.SetMarkerWidth(2.5);
    style.SetFillCenterOffsetX(-1);
    style.SetLineColor(KELDRGB(255, 0, 0));
    style.SetFillForeColor(KELDRGB(0, 255, 0));
    EXPECT_EQ(style.ToXML(20081212, "zpl:Mine"), Document("Mine{ " + fields + "}"));
    EXPECT_EQ(style.ToXML(0, "no name"), "");
    SetSymbols(style);
    Set3D(style);
    EXPECT_EQ(style.ToXML(0, ""), Document("Style{ " + fields + Symbols + "Style3D{ " + Fields3D + "} }"));
}

TEST(StyleXml, The2003DialectHasItsElementsInOrder) {
    const std::string fields =
        "SymbolStyle=0 SymbolSize=24 SymbolAngle=-3 LineStyle=0 LineWidth=1 LineColor=RGB(0,0,0) FillStyle=0 "
        "FillForeColor=RGB(189,235,255) FillBackColor=RGB(255,255,255) BackTransparent=FALSE "
        "FillOpaqueRate=100 FillGradientType=7 FillGradientAngle=45.300000 FillCenterOffsetX=0 "
        "FillCenterOffsetY=0 ";
    QzStyle style;
    style.SetMarkerAngle(-0.25);
    style.SetFillGradientType(7);
    style.SetFillAngle(45.3);
    style.SetTessellate(1); // 3D is not in this dialect
    EXPECT_EQ(style.ToXML(Dialect2003, ""), Document("GeoStyle{ " + fields + "}"));
    SetSymbols(style);
    EXPECT_EQ(style.ToXML(Dialect2003, "zpl:Mine"), Document("Mine{ " + fields + Symbols + "}"));
}

TEST(StyleXml, WhatIsWrittenReadsBack) {
    RandomStyle random(3);
    for (const auto charset : {KELDCharset::UTF8, KELDCharset::ISO8859_1, KELDCharset::GB2312}) {
        const CurrentCharset current(charset);
        for (int i = 0; i < 300; ++i) {
            const QzStyle style = random.Make(random.Chance());
            const KeldMBString text = style.ToXML(0, "");
            QzStyle read = random.Make(style.GetStyleEx() != nullptr && random.Chance());
            read.ClearMarkSymbolStyle(); // an element that is missing clears nothing
            read.ClearLineSymbolStyle();
            read.ClearFillSymbolStyle();
            EXPECT_TRUE(read.FromXML(text, 0));
            EXPECT_TRUE(read == style) << text.Cstr();
            EXPECT_EQ(read.ToXML(0, ""), text);

            const KeldMBString text2003 = style.ToXML(Dialect2003, "");
            QzStyle read2003;
            read2003.SetMarkerWidth(style.GetMarkerWidth());
            read2003.SetMarkerHeight(style.GetMarkerHeight());
            read2003.SetFillBackOpaque(random.Chance());
            EXPECT_TRUE(read2003.FromXML(text2003, Dialect2003));
            EXPECT_TRUE(read2003 == style || style.GetStyleEx() != nullptr) << text2003.Cstr();
            EXPECT_EQ(read2003.ToXML(Dialect2003, ""), text2003);
        }
    }
}

TEST(StyleXml, ReadsElementsOfOthers) {
    QzStyle style;
    EXPECT_TRUE(style.FromXML(
        "<zpl:Style id='1'><other/><zpl:LineWidth>7</zpl:LineWidth><zpl:MarkerSize> +12.34mm</zpl:MarkerSize>"
        "<!-- <zpl:MarkerAngle>1</zpl:MarkerAngle> --><zpl:MarkerWidth>33.9</zpl:MarkerWidth>"
        "<deep><zpl:LineStyle>9</zpl:LineStyle></deep><zpl:FillGradientType>sQuare</zpl:FillGradientType></zpl:Style>",
        0));
    EXPECT_EQ(style.GetMarkerSize(), 12.3);
    EXPECT_EQ(style.GetMarkerAngle(), 0);
    EXPECT_EQ(style.GetMarkerWidth(), 3.3); // the tenths as they stand
    EXPECT_EQ(style.GetLineStyle(), 0);     // not a child
    EXPECT_EQ(style.GetLineWidth(), 0.1);   // in front of what was found before
    EXPECT_EQ(style.GetFillGradientType(), 4);

    EXPECT_TRUE(style.FromXML("<g><zpl:BackTransparent>True</zpl:BackTransparent><x/>"
                              "<zpl:SymbolSize>25.9</zpl:SymbolSize><!-- --><zpl:LineWidth>12</zpl:LineWidth></g>",
                              Dialect2003));
    EXPECT_EQ(style.GetFillBackOpaque(), 0); // found in front of what was read before it
    EXPECT_EQ(style.GetMarkerSize(), 2.5);
    EXPECT_EQ(style.GetLineWidth(), 1.2);

    const QzStyle before = style;
    EXPECT_FALSE(style.FromXML("", 0));
    EXPECT_TRUE(style.FromXML("no element", 0));
    EXPECT_TRUE(style == before);
}

TEST(StyleXml, A3DElementIsReadAsAWhole) {
    QzStyle style;
    style.SetMarkerStyle(5);
    EXPECT_TRUE(style.FromXML(Document("Style{ MarkerSize=9 LineStyle3D=line_pipeline Fill3DMode=FILL_NOTHING "
                                       "LineWidth=0.25 PipeSides=-1 ExtendHeight=1e3 PointSize=1e99 }"),
                              0));
    ASSERT_NE(style.GetStyleEx(), nullptr);
    EXPECT_EQ(style.GetMarkerSize(), 2.4);
    EXPECT_EQ(style.GetLineStyle(), 1);
    EXPECT_EQ(style.GetLineWidth(), 0.3);
    EXPECT_EQ(style.GetFill3DMode(), FILL_FACE);
    EXPECT_EQ(style.GetExtendHeight(), 1000);
    EXPECT_EQ(style.GetPointSize(), std::numeric_limits<float>::max());
    style.SetIconName(KeldMBString("a\0b", 3)); // refused rather than cut
    EXPECT_EQ(style.ToXML(0, ""), "");
}

TEST(StyleXml, ColoursAsText) {
    // Red is read at the fifth character, wherever the bracket stands.
    const std::pair<const char*, unsigned int> rows[] = {{"rgb(10, 20,30)", KELDRGB(10, 20, 30)},
                                                         {" RGB(1,2,3)", KELDRGB(0, 2, 3)},
                                                         {"RGB(1,2", KELDRGB(1, 2, 0)},
                                                         {"RGB(-1,256,x)", KELDRGB(255, 0, 0)},
                                                         {"16777215", 16777215},
                                                         {"-1", 0xFFFFFFFF}};
    for (const auto& [text, color] : rows)
        EXPECT_EQ(QzStyle::ConvertRGBColor(KeldMBString(text)), color) << text;
    EXPECT_EQ(QzStyleEx::ConvertRGBAColor("RGBA(0.250000,-1,1e2,.5))"), QzColorValue3D(0.25, -1, 100, 0.5));
    EXPECT_EQ(QzStyleEx::ConvertRGBAColor("1,1,1,1"), QzColorValue3D(0, 0, 0, 0)); // no bracket, no numbers
    EXPECT_EQ(QzStyleEx::ConvertRGBAColor("RGBA(nan,inf,0x10"), QzColorValue3D(0, 0, 0, 0));
}

TEST(StyleXml, LyingSymbolLengthsCostNothing) {
    const std::pair<const char*, std::size_t> rows[] = {{"-1", 0},        {"2147483647", 0}, {"x", 0}, {"65539", 0},
                                                        {"65538", 65538}, {"1", 1},          {"6", 6}};
    for (const auto& [length, taken] : rows) {
        std::string expected("\x01\x02");
        expected.resize(taken); // zeros for what is missing
        QzStyle style;
        SetSymbols(style);
        EXPECT_TRUE(style.FromXML(Document(std::string("Style{ CustomLineSymbol{ LineSymbolLength=") + length +
                                           " LineSymbolVersion=6 LineSymbolString=0102 } }"),
                                  0));
        EXPECT_EQ(style.GetLineSymbolVersion(), 6U);
        EXPECT_EQ(style.GetMarkerSymbolLength(), 5U);
        const auto* const bytes = reinterpret_cast<const char*>(style.GetLineSymbolStyle());
        EXPECT_TRUE(std::string(bytes, style.GetLineSymbolLength()) == expected) << length;
    }
}
