#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "style/randomstyle.h"
#include "support.h"
#include "toolkit/qzstyleexport.h"

using namespace Qzc;

namespace {

std::string Joined(const KeldArray<KeldMBString>& names) {
    std::string text;
    for (const KeldMBString& name : names)
        text += (text.empty() ? "" : ", ") + std::string(name.View());
    return text;
}

// A line, marker or region as a text; what the language did not hold.
std::string FeatureStyle(const QzStyle& style, int kind, std::string* leftOut = nullptr) {
    KeldArray<KeldMBString> names;
    const KeldMBString text = ToFeatureStyle(style, kind, &names);
    if (leftOut != nullptr)
        *leftOut = Joined(names);
    return std::string(text.View());
}

// What is left out; "no" when the text is refused, which must leave the style alone.
template <class Read>
std::string ReadStyle(Read read, const std::string& text, int kind, QzStyle& style) {
    const QzStyle before = style;
    KeldArray<KeldMBString> names;
    if (read(KeldMBString(text), kind, style, &names))
        return Joined(names);
    EXPECT_TRUE(style == before) << text;
    return "no";
}

QzStyle Sample() {
    constexpr std::uint32_t Line = KELDRGB(0x11, 0x22, 0xFF);
    constexpr std::uint32_t Back = KELDRGB(0x44, 0x55, 0x66);
    constexpr std::uint32_t Fore = KELDRGB(0x77, 0x88, 0x99);
    QzStyle style;
    // In the order of KeldStyle, tenths as integers: marker's style, angle, size, width and height; line's style,
    // colour and width; fill's style, colours, opacity, gradient, angle and centre.
    style.FromKeldStyle({false, 0, 5, -305, 28, 28, 28, -7, Line, 14, 6, Back, Fore, true, 40, 0, 0, 0, 0, false});
    return style;
}

} // namespace

TEST(StyleExport, FeatureStylesAreWrittenAsTheGrammarHasThem) {
    QzStyle style = Sample();
    std::string leftOut;
    style.SetFillAngle(45);
    EXPECT_EQ(FeatureStyle(style, 0, &leftOut), "SYMBOL(id:\"motoolkit-sym-5,ogr-sym-3\",c:#1122ff66,s:2.8mm,a:-30.5)");
    EXPECT_EQ(leftOut, "fill back colour, fill angle");
    const std::string pen = "PEN(c:#1122ff,w:1.4mm,id:\"motoolkit-pen--7,ogr-pen-0\")";
    EXPECT_EQ(FeatureStyle(style, 1, &leftOut), pen);
    EXPECT_EQ(leftOut, "");
    EXPECT_EQ(FeatureStyle(style, 2),
              "BRUSH(fc:#77889966,bc:#44556666,a:45,id:\"motoolkit-brush-6,ogr-brush-0\");" + pen);
    style.SetFillBackOpaque(0);
    EXPECT_EQ(FeatureStyle(style, 2),
              "BRUSH(fc:#77889966,bc:#44556600,a:45,id:\"motoolkit-brush-6,ogr-brush-0\");" + pen);
    EXPECT_EQ(FeatureStyle(QzStyle(), 2), "BRUSH(fc:#bdebff,bc:#ffffff);PEN(c:#000000,w:0.1mm)");
    EXPECT_EQ(FeatureStyle(style, 3), "");
}

TEST(StyleExport, FeatureStylesOfOthersAreRead) {
    const struct {
        int kind;
        const char* text;
        const char* expected; // as we write what was read
        const char* leftOut;
    } rows[] = {
        {1, "PEN(c:#FF0000,w:5px)", "PEN(c:#ff0000,w:1.4mm)", ""},
        {1, "PEN(w:2px,c:#0000FF,id:\"mapinfo-pen-14,ogr-pen-6\")", "PEN(c:#0000ff,w:0.6mm)", "PEN id"},
        {1, "PEN(c:#00FF00,p:\"4px 5px\",cap:r,j:b,w:0.5in)", "PEN(c:#00ff00,w:12.7mm)", "PEN p, PEN cap, PEN j"},
        {1, "PEN(c:#FF000080,w:2g)", "PEN(c:#ff0000,w:0.1mm)", "PEN c alpha, PEN w"},
        {1, "PEN(id:\"ogr-pen-1\",w:1cm)", "PEN(c:#000000,w:0mm)", ""},
        {1, " PEN ( w : 2 ) ; LABEL(f:\"Arial, Helvetica\",t:\"a \\\"b\\\" (c)\");", "PEN(c:#000000,w:2mm)", "LABEL"},
        {2, "BRUSH(fc:#0000FF)", "BRUSH(fc:#0000ff,bc:#ffffff00);PEN(c:#000000,w:0mm)", ""},
        {2, "PEN(c:#FF0000)", "BRUSH(fc:#bdebff00,bc:#ffffff00);PEN(c:#ff0000,w:0.1mm)", ""},
        {2, "BRUSH(fc:#00FF0080,bc:#00000080,id:\"ogr-brush-3\",s:4px,a:45.3);PEN(c:#FF0000,w:1)",
         "BRUSH(fc:#00ff0080,bc:#00000080,a:45.3);PEN(c:#ff0000,w:1mm)", "BRUSH id, BRUSH s"},
        {0, "SYMBOL(c:#00FF00,id:\"points.sym-45,ogr-sym-7\")",
         "SYMBOL(id:\"motoolkit-sym-0,ogr-sym-3\",c:#00ff00,s:2.4mm)", "SYMBOL id"},
        {0, "SYMBOL(id:\"ogr-sym-3\",a:30,s:10px,dx:2)",
         "SYMBOL(id:\"motoolkit-sym-0,ogr-sym-3\",c:#000000,s:2.8mm,a:30)", "SYMBOL dx"},
        {0, "SYMBOL(s:-1,c:red,a:x)", "SYMBOL(id:\"motoolkit-sym-0,ogr-sym-3\",c:#000000,s:2.4mm)",
         "SYMBOL c, SYMBOL s, SYMBOL a"},
    };
    for (const auto& row : rows) {
        QzStyle style;
        EXPECT_EQ(ReadStyle(FromFeatureStyle, row.text, row.kind, style), row.leftOut) << row.text;
        EXPECT_EQ(FeatureStyle(style, row.kind), row.expected) << row.text;
    }
    QzStyle style = Sample();
    for (const char* const text : {"", "@highway", "PEN", "PEN(", "PEN(c", "PEN(c:", "PEN(c:#FF0000", "PEN(:1)",
                                   "PEN(c:\"x)", "PEN(c:1)x", "PEN(c:1,)", "(c:1)", "BRUSH(fc:#000000)"})
        EXPECT_EQ(ReadStyle(FromFeatureStyle, text, 1, style), "no") << text;
    EXPECT_EQ(ReadStyle(FromFeatureStyle, "PEN(w:1)", 3, style), "no");
}

TEST(StyleExport, SldIsWrittenAsTheSchemasHaveIt) {
    const auto written = [](int kind, QzSldVersion version, const char* expectedLeftOut) {
        KeldArray<KeldMBString> leftOut;
        std::string text(ToSld(Sample(), kind, "Roads & paths", version, &leftOut).View());
        EXPECT_EQ(Joined(leftOut), expectedLeftOut);
        text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n'; }), text.end());
        return text;
    };
    const std::string begin =
        "<StyledLayerDescriptor version=\"1.0.0\" xmlns=\"http://www.opengis.net/sld\"><NamedLayer>"
        "<Name>Roads &amp; paths</Name><UserStyle><FeatureTypeStyle><Rule>";
    const std::string end = "</Rule></FeatureTypeStyle></UserStyle></NamedLayer></StyledLayerDescriptor>";
    const std::string fill = "</WellKnownName><Fill><CssParameter name=\"fill\">#1122ff</CssParameter></Fill></Mark>";
    EXPECT_EQ(written(0, QzSldVersion::Sld10, "fill back colour"),
              begin + "<PointSymbolizer><Graphic><Mark><WellKnownName>motoolkit-sym-5" + fill +
                  "<Mark><WellKnownName>circle" + fill +
                  "<Opacity>0.4</Opacity><Size>10</Size><Rotation>-30.5</Rotation></Graphic></PointSymbolizer>" + end);
    EXPECT_EQ(written(2, QzSldVersion::Sld10, "fill back colour"),
              begin + "<Name>motoolkit-pen--7 motoolkit-brush-6</Name><PolygonSymbolizer>" +
                  "<Fill><CssParameter name=\"fill\">#778899</CssParameter>" +
                  "<CssParameter name=\"fill-opacity\">0.4</CssParameter></Fill>" +
                  "<Stroke><CssParameter name=\"stroke\">#1122ff</CssParameter>" +
                  "<CssParameter name=\"stroke-width\">5</CssParameter></Stroke></PolygonSymbolizer>" + end);
    EXPECT_EQ(written(1, QzSldVersion::Se11, ""),
              "<StyledLayerDescriptor version=\"1.1.0\" xmlns=\"http://www.opengis.net/sld\" "
              "xmlns:se=\"http://www.opengis.net/se\"><NamedLayer><se:Name>Roads &amp; paths</se:Name><UserStyle>"
              "<se:FeatureTypeStyle><se:Rule><se:Name>motoolkit-pen--7</se:Name><se:LineSymbolizer><se:Stroke>"
              "<se:SvgParameter name=\"stroke\">#1122ff</se:SvgParameter>"
              "<se:SvgParameter name=\"stroke-width\">5</se:SvgParameter></se:Stroke></se:LineSymbolizer>"
              "</se:Rule></se:FeatureTypeStyle></UserStyle></NamedLayer></StyledLayerDescriptor>");
    EXPECT_EQ(ToSld(Sample(), 3, "a"), "");
    EXPECT_EQ(ToSld(Sample(), 1, KeldMBString("a\0b", 3)), "");
}

TEST(StyleExport, SldOfOthersIsRead) {
    const struct {
        int kind;
        const char* text;
        const char* expected; // as a feature style
        const char* leftOut;
    } rows[] = {
        {1,
         "<LineSymbolizer><Geometry><ogc:PropertyName>centerline</ogc:PropertyName></Geometry><Stroke>"
         "<CssParameter name=\"stroke\">#0000ff</CssParameter><CssParameter name=\"stroke-width\">2</CssParameter>"
         "<CssParameter name=\"stroke-dasharray\">5.0 2.5</CssParameter></Stroke></LineSymbolizer>",
         "PEN(c:#0000ff,w:0.6mm)", "Geometry, stroke-dasharray"},
        {2,
         "<PolygonSymbolizer><Fill><CssParameter name=\"fill\">#aaaaff</CssParameter></Fill>"
         "<Stroke><CssParameter name=\"stroke\">#0000aa</CssParameter></Stroke></PolygonSymbolizer>",
         "BRUSH(fc:#aaaaff,bc:#445566);PEN(c:#0000aa,w:0.3mm)", ""},
        {0,
         "<se:PointSymbolizer><se:Graphic><se:ExternalGraphic/><se:Mark><se:WellKnownName>circle</se:WellKnownName>"
         "<se:Fill><se:SvgParameter name=\"fill\"><ogc:Literal> #00ff00 </ogc:Literal></se:SvgParameter>"
         "<se:SvgParameter name=\"fill-opacity\">0.5</se:SvgParameter></se:Fill></se:Mark><se:Opacity>0.5</se:Opacity>"
         "<se:Size>10</se:Size><se:Rotation>45</se:Rotation><se:AnchorPoint/></se:Graphic></se:PointSymbolizer>",
         "SYMBOL(id:\"motoolkit-sym-0,ogr-sym-3\",c:#00ff0040,s:2.8mm,a:45)", "ExternalGraphic, AnchorPoint"},
        {2, "<PolygonSymbolizer/>", "BRUSH(fc:#77889900,bc:#44556600);PEN(c:#1122ff,w:0mm)", ""},
        {1,
         "<LineSymbolizer uom=\"http://www.opengeospatial.org/se/units/metre\"><Stroke>"
         "<SvgParameter name=\"stroke-width\">3</SvgParameter></Stroke></LineSymbolizer>",
         "PEN(c:#000000,w:1.4mm)", "uom, stroke-width"},
        {1,
         "<?xml version=\"1.0\"?><sld:StyledLayerDescriptor><sld:Name/><sld:NamedLayer><sld:UserStyle>"
         "<sld:FeatureTypeStyle><sld:Rule><sld:Name>motoolkit-pen-1</sld:Name><ogc:Filter/><sld:TextSymbolizer/></"
         "sld:Rule>"
         "<sld:Rule><sld:MinScaleDenominator>1</sld:MinScaleDenominator><sld:LineSymbolizer><sld:Stroke>"
         "<sld:CssParameter name=\"stroke-width\"><ogc:PropertyName>w</ogc:PropertyName></sld:CssParameter>"
         "</sld:Stroke></sld:LineSymbolizer><sld:LineSymbolizer/></sld:Rule><sld:Rule/></sld:FeatureTypeStyle>"
         "</sld:UserStyle></sld:NamedLayer></sld:StyledLayerDescriptor>",
         "PEN(c:#000000,w:0.3mm)", "Filter, TextSymbolizer, MinScaleDenominator, stroke-width, LineSymbolizer, Rule"},
    };
    for (const auto& row : rows) {
        QzStyle style = Sample();
        EXPECT_EQ(ReadStyle(FromSld, row.text, row.kind, style), row.leftOut) << row.text;
        EXPECT_EQ(FeatureStyle(style, row.kind), row.expected) << row.text;
    }
    QzStyle style;
    for (const char* const text :
         {"", "PEN(w:1)", "<LineSymbolizer", "<PointSymbolizer/>", "<Rule/>", "<x><LineSymbolizer/></x>"})
        EXPECT_EQ(ReadStyle(FromSld, text, 1, style), "no") << text;
    EXPECT_EQ(ReadStyle(FromSld, "<PointSymbolizer/>", 3, style), "no");
}

// Every field of the kind that is drawn is read back, or told to be left out.
TEST(StyleExport, WhatIsNotNamedComesBack) {
    RandomStyle random(4);
    int whole = 0;
    for (int i = 0; i < 3000; ++i) {
        QzStyle style = random.Make(random.UpTo(9) == 0);
        const int kind = random.UpTo(2);
        if (random.Chance()) { // what no language holds
            style.SetFillGradientType(0);
            style.SetFillCenterOffsetX(0);
            style.SetFillCenterOffsetY(0);
            style.ClearSymbolStyle();
            style.SetIsFixedColor(0);
            style.SetScaleBySymbol(0);
        }
        style.SetFillOpaqueRate(static_cast<unsigned char>(random.UpTo(105)));
        style.SetLineWidth(random.UpTo(500) / 10.0);
        style.SetMarkerSize(random.UpTo(500) / 10.0);
        const bool isSld = random.Chance();
        KeldArray<KeldMBString> leftOut;
        const KeldMBString text =
            isSld ? ToSld(style, kind, "n", QzSldVersion::Se11, &leftOut) : ToFeatureStyle(style, kind, &leftOut);
        QzStyle read;
        EXPECT_TRUE(isSld ? FromSld(text, kind, read) : FromFeatureStyle(text, kind, read));
        const std::string names = ", " + Joined(leftOut) + ",";
        const auto check = [&](const char* kinds, const std::string& name, auto get) {
            const bool isLeftOut = names.find(", " + name + ",") != std::string::npos;
            const bool isOfKind = std::string(kinds).find(std::to_string(kind)) != std::string::npos;
            EXPECT_TRUE(isLeftOut ? isOfKind : !isOfKind || (read.*get)() == (style.*get)()) << name << text << names;
        };
        using S = QzStyle;
        check("012", "line colour", &S::GetLineColor);
        check("0", "marker style", &S::GetMarkerStyle);
        check("0", "marker size", &S::GetMarkerSize);
        check("0", "marker angle", &S::GetMarkerAngle);
        check("0", "marker width", &S::GetMarkerWidth);
        check("0", "marker height", &S::GetMarkerHeight);
        check("12", "line style", &S::GetLineStyle);
        check("12", "line width", &S::GetLineWidth);
        check("2", "fill style", &S::GetFillStyle);
        check("2", "fill fore colour", &S::GetFillForeColor);
        check("02", "fill opacity", &S::GetFillOpaqueRate);
        check("02", "fill gradient", &S::GetFillGradientType);
        check("02", "fill angle", &S::GetFillAngle);
        check("02", "fill back colour", &S::GetFillBackColor);
        check("2", "fill back opaque", &S::GetFillBackOpaque);
        EXPECT_EQ(names.find("3D attributes") == std::string::npos, style.GetStyleEx() == nullptr);
        whole += leftOut.IsEmpty() ? 1 : 0;
    }
    EXPECT_GT(whole, 100); // the list is not simply full
}
