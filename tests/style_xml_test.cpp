#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <vector>

#include "randomstyle.h"
#include "support.h"
#include "toolkit/qzmarkup.h"
#include "toolkit/qzstyle.h"
#include "toolkit/qztextcodec.h"

using namespace Qzc;

namespace {

constexpr int Dialect2003 = 20031211;

using Fields = std::vector<std::pair<std::string, std::string>>; ///< without the prefix "zpl:"

std::string Element(const std::string& name, const std::string& content) {
    return "<zpl:" + name + ">" + content + "</zpl:" + name + ">\r\n";
}

std::string Document(const std::string& root, const Fields& fields) {
    std::string content = "\r\n";
    for (const auto& [name, value] : fields)
        content += value.empty() ? "<zpl:" + name + "/>\r\n" : Element(name, value);
    return Element(root, content);
}

KeldMBString Text(const std::string& text) {
    return KeldMBString(text);
}

const Fields Default3D = {
    {"PointSize", "4.0"},
    {"ColorPoint", "RGBA(1.000000,1.000000,1.000000,1.000000))"},
    {"LineWidth", "1"},
    {"Fill3DMode", "FILL_FACE"},
    {"ColorFill", "RGBA(1.000000,1.000000,1.000000,1.000000))"},
    {"LineColor", "RGBA(1.000000,1.000000,1.000000,1.000000))"},
    {"IconScale", "1.0"},
    {"TilingU", "1.000000"},
    {"TilingV", "1.000000"},
    {"TextureRepeatMode", "RepeatTimes"},
    {"TopTilingU", "1.000000"},
    {"TopTilingV", "1.000000"},
    {"TopTextureRepeatMode", "RepeatTimes"},
    {"IconName", ""},
    {"SideTextureName", ""},
    {"TopTextureName", ""},
    {"BottomAltitude", "0"},
    {"ExtendHeight", "0"},
    {"AltitudeMode", "ClampToGround"},
    {"IconAnchor", "\r\n<zpl:x>0.0000000000</zpl:x>\r\n<zpl:y>0.0000000000</zpl:y>\r\n"},
    {"FixedPixelSize", "TRUE"},
    {"BillboardMode", "SCREEN_ALIGNED"},
    {"IsMarker3D", "FALSE"},
    {"LineStyle3D", "LINE_SIMPLE"},
    {"PipeSides", "20"},
    {"IsFiletEnable", "FALSE"},
    {"IsTessellate", "FALSE"},
    {"ScaleX", "1.000000"},
    {"ScaleY", "1.000000"},
    {"ScaleZ", "1.000000"},
    {"RotateX", "0.000000"},
    {"RotateY", "0.000000"},
    {"RotateZ", "0.000000"}};

void SetSymbols(QzStyle& style) {
    unsigned char bytes[] = {1, 2, 3, 4, 5, 6, 7, 8};
    style.SetMarkSymbolStyle(bytes, 5, 0xFFFFFFFF, 1);
    style.SetLineSymbolStyle(bytes, 8, 2, 1);
    style.SetFillSymbolStyle(bytes, 4, 3, 1);
}

// As SetSymbols leaves them: of eight bytes the last four are not written, of four none.
const Fields Symbols = {{"CustomMarkerSymbol",
                         "\r\n<zpl:MarkerSymbolLength>5</zpl:MarkerSymbolLength>\r\n"
                         "<zpl:MarkerSymbolVersion>-1</zpl:MarkerSymbolVersion>\r\n"
                         "<zpl:MarkerSymbolString>0102030405000000</zpl:MarkerSymbolString>\r\n"},
                        {"CustomLineSymbol", "\r\n<zpl:LineSymbolLength>8</zpl:LineSymbolLength>\r\n"
                                             "<zpl:LineSymbolVersion>2</zpl:LineSymbolVersion>\r\n"
                                             "<zpl:LineSymbolString>01020304</zpl:LineSymbolString>\r\n"},
                        {"CustomFillSymbol", "\r\n<zpl:FillSymbolLength>4</zpl:FillSymbolLength>\r\n"
                                             "<zpl:FillSymbolVersion>3</zpl:FillSymbolVersion>\r\n"
                                             "<zpl:FillSymbolString></zpl:FillSymbolString>\r\n"}};

Fields operator+(Fields a, const Fields& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

} // namespace

TEST(StyleXml, TheCurrentDialectHasItsElementsInOrder) {
    const Fields fields = {{"MarkerStyle", "0"},
                           {"MarkerSize", "2.40"},
                           {"MarkerAngle", "0.00"},
                           {"MarkerWidth", "24"},
                           {"MarkerHeight", "24"},
                           {"LineStyle", "0"},
                           {"LineWidth", "0.10"},
                           {"LineColor", "RGB(0,0,0)"},
                           {"FillStyle", "0"},
                           {"FillForeColor", "RGB(189,235,255)"},
                           {"FillBackColor", "RGB(255,255,255)"},
                           {"FillBackOpaque", "TRUE"},
                           {"FillOpaqueRate", "100"},
                           {"FillGradientType", "None"},
                           {"FillAngle", "0.00"},
                           {"FillCenterOffsetX", "0"},
                           {"FillCenterOffsetY", "0"}};
    QzStyle style;
    EXPECT_EQ(style.ToXML(0, ""), Text(Document("Style", fields)));
    EXPECT_EQ(style.ToXML(20081212, "zpl:Mine"), Text(Document("Mine", fields)));
    EXPECT_EQ(style.ToXML(0, "no name"), "");
    SetSymbols(style);
    style.SetModifiedFlag();
    std::string content = "\r\n";
    for (const auto& [name, value] : Default3D)
        content += value.empty() ? "<zpl:" + name + "/>\r\n" : Element(name, value);
    EXPECT_EQ(style.ToXML(0, ""), Text(Document("Style", fields + Symbols + Fields{{"Style3D", content}})));
    EXPECT_EQ(style.GetStyleEx()->ToXML(0, ""), Text(Document("Style", Default3D)));
}

TEST(StyleXml, The2003DialectHasItsElementsInOrder) {
    const Fields fields = {{"SymbolStyle", "0"},
                           {"SymbolSize", "24"},
                           {"SymbolAngle", "-3"},
                           {"LineStyle", "0"},
                           {"LineWidth", "1"},
                           {"LineColor", "RGB(0,0,0)"},
                           {"FillStyle", "0"},
                           {"FillForeColor", "RGB(189,235,255)"},
                           {"FillBackColor", "RGB(255,255,255)"},
                           {"BackTransparent", "FALSE"},
                           {"FillOpaqueRate", "100"},
                           {"FillGradientType", "7"},
                           {"FillGradientAngle", "45.300000"},
                           {"FillCenterOffsetX", "0"},
                           {"FillCenterOffsetY", "0"}};
    QzStyle style;
    style.SetMarkerAngle(-0.25);
    style.SetFillGradientType(7);
    style.SetFillAngle(45.3);
    style.SetTessellate(1); // 3D is not in this dialect
    EXPECT_EQ(style.ToXML(Dialect2003, ""), Text(Document("GeoStyle", fields)));
    SetSymbols(style);
    EXPECT_EQ(style.ToXML(Dialect2003, "zpl:Mine"), Text(Document("Mine", fields + Symbols)));
}

TEST(StyleXml, WhatIsWrittenReadsBack) {
    RandomStyle random(3);
    for (const auto charset : {KELDCharset::UTF8, KELDCharset::ISO8859_1, KELDCharset::GB2312}) {
        const CurrentCharset current(charset);
        for (int i = 0; i < 300; ++i) {
            const QzStyle style = random.Make(random.Chance());
            const KeldMBString text = style.ToXML(0, "");
            QzStyle read = random.Make(style.GetStyleEx() != nullptr && random.Chance());
            if (read.GetStyleEx() != nullptr)
                read.GetStyleEx()->SetMarkerStyle(0);
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

TEST(StyleXml, ReadsAnElementOfALargerDocument) {
    QzStyle style;
    QzMarkup map(
        "<?xml version=\"1.0\"?><map><!-- styles --><layer><zpl:Style "
        "id='1'><other/><zpl:LineWidth>7</zpl:LineWidth>"
        "<zpl:MarkerSize> +12.34mm</zpl:MarkerSize><!-- <zpl:MarkerAngle>1</zpl:MarkerAngle> -->"
        "<zpl:MarkerWidth>33.9</zpl:MarkerWidth><deep><zpl:LineStyle>9</zpl:LineStyle></deep>"
        "<zpl:LineColor>rgb(10, 20,30)</zpl:LineColor><zpl:FillForeColor>16777215</zpl:FillForeColor>"
        "<zpl:FillBackOpaque>true</zpl:FillBackOpaque><zpl:FillGradientType>sQuare</zpl:FillGradientType>"
        "</zpl:Style></layer></map>");
    map.FindElem();
    map.FindChildElem("layer");
    map.IntoElem();
    map.FindChildElem("zpl:Style");
    EXPECT_TRUE(style.FromXML(map.GetChildSubDoc(), 0));
    EXPECT_EQ(style.GetMarkerSize(), 12.3);
    EXPECT_EQ(style.GetMarkerAngle(), 0);
    EXPECT_EQ(style.GetMarkerWidth(), 3.3); // the tenths as they stand
    EXPECT_EQ(style.GetLineStyle(), 0);     // not a child
    EXPECT_EQ(style.GetLineColor(), KELDRGB(10, 20, 30));
    EXPECT_EQ(style.GetFillForeColor(), 16777215U);
    EXPECT_EQ(style.GetFillBackOpaque(), 1);
    EXPECT_EQ(style.GetFillGradientType(), 4);
    EXPECT_EQ(style.GetLineWidth(), 0.1); // in front of what was found before

    style.SetFillGradientType(1);
    EXPECT_TRUE(style.FromXML("<zpl:Style><zpl:FillBackOpaque>yes</zpl:FillBackOpaque>"
                              "<zpl:FillGradientType>Wavy</zpl:FillGradientType></zpl:Style>",
                              0));
    EXPECT_EQ(style.GetFillBackOpaque(), 0);
    EXPECT_EQ(style.GetFillGradientType(), 0);

    EXPECT_TRUE(style.FromXML("<g><zpl:BackTransparent>True</zpl:BackTransparent><x/>"
                              "<zpl:SymbolSize>25.9</zpl:SymbolSize><!-- --><zpl:LineWidth>12</zpl:LineWidth>"
                              "<zpl:FillGradientType>3</zpl:FillGradientType></g>",
                              Dialect2003));
    EXPECT_EQ(style.GetFillBackOpaque(), 0); // found in front of what was read before it
    EXPECT_EQ(style.GetMarkerSize(), 2.5);
    EXPECT_EQ(style.GetLineWidth(), 1.2);
    EXPECT_EQ(style.GetFillGradientType(), 3);

    const QzStyle before = style;
    EXPECT_FALSE(style.FromXML("", 0));
    EXPECT_FALSE(QzStyleEx().FromXML("", 0));
    EXPECT_TRUE(style.FromXML("no element", 0));
    EXPECT_TRUE(style == before);
}

TEST(StyleXml, A3DElementIsReadAsAWhole) {
    QzStyle style;
    style.SetMarkerStyle(5);
    EXPECT_TRUE(style.FromXML("<zpl:Style><zpl:MarkerSize>9</zpl:MarkerSize>"
                              "<zpl:LineStyle3D>line_pipeline</zpl:LineStyle3D>"
                              "<zpl:Fill3DMode>FILL_NOTHING</zpl:Fill3DMode>"
                              "<zpl:LineWidth>0.25</zpl:LineWidth><zpl:PipeSides>-1</zpl:PipeSides>"
                              "<zpl:ExtendHeight>1e3</zpl:ExtendHeight>"
                              "<zpl:PointSize>1e99</zpl:PointSize></zpl:Style>",
                              0));
    ASSERT_NE(style.GetStyleEx(), nullptr);
    EXPECT_EQ(style.GetMarkerSize(), 2.4);
    EXPECT_EQ(style.GetMarkerStyle(), 0);
    EXPECT_EQ(style.GetLineStyle(), 1);
    EXPECT_EQ(style.GetLineWidth(), 0.3);
    EXPECT_EQ(style.GetFill3DMode(), FILL_FACE);
    EXPECT_EQ(style.GetPipeSides(), 0xFFFFFFFFU);
    EXPECT_EQ(style.GetExtendHeight(), 1000);
    EXPECT_EQ(style.GetPointSize(), std::numeric_limits<float>::max());
    EXPECT_FALSE(style.IsModified());
}

TEST(StyleXml, VersionsAreAsserted) {
    const AssertionLog log;
    QzStyle style;
    style.SetTessellate(1);
    EXPECT_TRUE(style.FromXML(style.ToXML(1, ""), 20031210));
    EXPECT_EQ(AssertionLog::Texts(), std::vector<std::string>(4, "nVersion == 0 || nVersion >= 20031211"));
}

TEST(StyleXml, ColoursAsText) {
    const struct {
        const char* text;
        unsigned int color;
    } rows[] = {{"RGB(1,2,3)", KELDRGB(1, 2, 3)},
                {"rgb(10,20,30)", KELDRGB(10, 20, 30)},
                {"RGB(1,2", KELDRGB(1, 2, 0)},
                {"RGB", 0},
                {"RGB(-1,256,x)", KELDRGB(255, 0, 0)},
                {"RGB(99999999999999999999,0,0)", KELDRGB(255, 0, 0)},
                {" RGB(1,2,3)", KELDRGB(0, 2, 3)}, // red is read at the fifth character
                {"Rgb(1,2,3)", 0},
                {"16777215", 16777215},
                {"4294967295", 0xFFFFFFFF},
                {"-1", 0xFFFFFFFF},
                {"", 0}};
    for (const auto& row : rows)
        EXPECT_EQ(QzStyle::ConvertRGBColor(KeldMBString(row.text)), row.color) << row.text;
    EXPECT_EQ(QzStyle::ConvertRGBColor(0xFF030201), "RGB(1,2,3)");

    EXPECT_EQ(QzStyleEx::ConvertRGBAColor("RGBA(0.250000,-1,1e2,.5))"), QzColorValue3D(0.25, -1, 100, 0.5));
    EXPECT_EQ(QzStyleEx::ConvertRGBAColor("RGBA(nan,inf,0x10"), QzColorValue3D(0, 0, 0, 0));
    EXPECT_EQ(QzStyleEx::ConvertRGBAColor(""), QzColorValue3D(0, 0, 0, 0));
}

TEST(StyleXml, LyingSymbolLengthsCostNothing) {
    const auto read = [](const std::string& length, const std::string& digits) {
        QzStyle style;
        SetSymbols(style);
        const std::string block = "<zpl:LineSymbolLength>" + length +
                                  "</zpl:LineSymbolLength><zpl:LineSymbolVersion>6</zpl:LineSymbolVersion>"
                                  "<zpl:LineSymbolString>" +
                                  digits + "</zpl:LineSymbolString>";
        EXPECT_TRUE(style.FromXML(Text(Element("Style", Element("CustomLineSymbol", block))), 0));
        EXPECT_EQ(style.GetLineSymbolVersion(), 6U);
        EXPECT_EQ(style.GetMarkerSymbolLength(), 5U);
        EXPECT_EQ(style.GetLineSymbolStyle() == nullptr, style.GetLineSymbolLength() == 0);
        const auto* const bytes = reinterpret_cast<const char*>(style.GetLineSymbolStyle());
        return std::string(bytes != nullptr ? bytes : "", style.GetLineSymbolLength());
    };
    EXPECT_EQ(read("-1", "0102"), "");
    EXPECT_EQ(read("2147483647", "0102"), "");
    EXPECT_EQ(read("4294967295", "0102"), "");
    EXPECT_EQ(read("0", "0102"), "");
    EXPECT_EQ(read("", "0102"), "");
    EXPECT_EQ(read("1", "0102"), "\x01");
    EXPECT_EQ(read("6", "0102"), std::string("\x01\x02\0\0\0\0", 6)); // zeros for what is missing
    EXPECT_EQ(read("65536", "").size(), 65536U);
    EXPECT_EQ(read("65537", "").size(), 0U);
}

TEST(StyleXml, NumbersDoNotDependOnTheLocale) {
    const ScratchDirectory scratch;
    ASSERT_EQ(std::system(("localedef -i de_DE -f UTF-8 " + (scratch / "de_DE.UTF-8")).c_str()), 0);
    QzStyle style;
    style.SetMarkerSize(1234.5);
    style.SetPointSize(1234.5F);
    style.GetStyleEx()->SetLineWidth(0.25F);
    const KeldMBString text = style.ToXML(0, "");
    const KeldMBString text2003 = style.ToXML(Dialect2003, "");
    setenv("LOCPATH", scratch.Path().c_str(), 1);
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);
    KeldMBString comma;
    comma.Format("%.1f", 0.5);
    EXPECT_EQ(comma, "0,5");
    EXPECT_EQ(style.ToXML(0, ""), text);
    EXPECT_EQ(style.ToXML(Dialect2003, ""), text2003);
    QzStyle read;
    EXPECT_TRUE(read.FromXML(text, 0));
    EXPECT_TRUE(read == style);
    std::setlocale(LC_ALL, "C");
    unsetenv("LOCPATH");
}
