#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "style/randomstyle.h"
#include "support.h"
#include "toolkit/qzmarkup.h"
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
    names.Add("of an earlier call");
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
    names.Add("of an earlier call");
    if (read(KeldMBString(text), kind, style, &names))
        return Joined(names);
    EXPECT_TRUE(style == before) << text;
    EXPECT_TRUE(names.IsEmpty()) << text;
    return "no";
}
std::string ReadFeatureStyle(const std::string& text, int kind, QzStyle& style) {
    return ReadStyle(FromFeatureStyle, text, kind, style);
}
std::string ReadSld(const std::string& text, int kind, QzStyle& style) {
    return ReadStyle(FromSld, text, kind, style);
}

QzStyle Sample() {
    QzStyle style;
    style.SetMarkerStyle(5);
    style.SetMarkerSize(2.8);
    style.SetMarkerWidth(2.8);
    style.SetMarkerHeight(2.8);
    style.SetMarkerAngle(-30.5);
    style.SetLineStyle(-7);
    style.SetLineColor(KELDRGB(0x11, 0x22, 0xFF));
    style.SetLineWidth(1.4);
    style.SetFillStyle(6);
    style.SetFillForeColor(KELDRGB(0x77, 0x88, 0x99));
    style.SetFillBackColor(KELDRGB(0x44, 0x55, 0x66));
    style.SetFillOpaqueRate(40);
    return style;
}

} // namespace

TEST(StyleExport, FeatureStylesAreWrittenAsTheGrammarHasThem) {
    QzStyle style = Sample();
    std::string leftOut;
    style.SetFillAngle(45);
    EXPECT_EQ(FeatureStyle(style, 0, &leftOut), "SYMBOL(id:\"motoolkit-sym-5,ogr-sym-3\",c:#1122ff66,s:2.8mm,a:-30.5)");
    EXPECT_EQ(leftOut, "fill back colour, fill angle");
    EXPECT_EQ(FeatureStyle(style, 1, &leftOut), "PEN(c:#1122ff,w:1.4mm,id:\"motoolkit-pen--7,ogr-pen-0\")");
    EXPECT_EQ(leftOut, "");
    const std::string pen = ";PEN(c:#1122ff,w:1.4mm,id:\"motoolkit-pen--7,ogr-pen-0\")";
    EXPECT_EQ(FeatureStyle(style, 2, &leftOut),
              "BRUSH(fc:#77889966,bc:#44556666,a:45,id:\"motoolkit-brush-6,ogr-brush-0\")" + pen);
    EXPECT_EQ(leftOut, "");
    style.SetFillBackOpaque(0);
    EXPECT_EQ(FeatureStyle(style, 2, &leftOut),
              "BRUSH(fc:#77889966,bc:#44556600,a:45,id:\"motoolkit-brush-6,ogr-brush-0\")" + pen);
    EXPECT_EQ(leftOut, "");
    EXPECT_EQ(FeatureStyle(QzStyle(), 2), "BRUSH(fc:#bdebff,bc:#ffffff);PEN(c:#000000,w:0.1mm)");
    EXPECT_EQ(FeatureStyle(style, 3, &leftOut), "");
    EXPECT_EQ(leftOut, "");
    style.SetIconName("a");
    EXPECT_EQ(FeatureStyle(style, 4, &leftOut), "");
    EXPECT_EQ(leftOut, "3D attributes");
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
        {1, "PEN(c:{color},w:36pt)", "PEN(c:#000000,w:12.7mm)", "PEN c"},
        {1, "PEN(id:\"ogr-pen-1\",w:1cm)", "PEN(c:#000000,w:0mm)", ""},
        {1, " PEN ( w : 2 ) ; LABEL(f:\"Arial, Helvetica\",t:\"a \\\"b\\\" (c)\");", "PEN(c:#000000,w:2mm)", "LABEL"},
        {1, "PEN();PEN(w:1)", "PEN(c:#000000,w:0.1mm)", "PEN"},
        {2, "BRUSH(fc:#0000FF)", "BRUSH(fc:#0000ff,bc:#ffffff00);PEN(c:#000000,w:0mm)", ""},
        {2, "PEN(c:#FF0000)", "BRUSH(fc:#bdebff00,bc:#ffffff00);PEN(c:#ff0000,w:0.1mm)", ""},
        {2, "BRUSH(fc:#00FF0080,bc:#00000080,id:\"ogr-brush-3\",s:4px,a:45.3);PEN(c:#FF0000,w:1)",
         "BRUSH(fc:#00ff0080,bc:#00000080,a:45.3);PEN(c:#ff0000,w:1mm)", "BRUSH id, BRUSH s"},
        {2, "BRUSH(id:\"ogr-brush-1\",bc:#000000)", "BRUSH(fc:#bdebff00,bc:#00000000);PEN(c:#000000,w:0mm)", ""},
        {0, "SYMBOL(c:#00FF00,id:\"points.sym-45,ogr-sym-7\")",
         "SYMBOL(id:\"motoolkit-sym-0,ogr-sym-3\",c:#00ff00,s:2.4mm)", "SYMBOL id"},
        {0, "SYMBOL(id:\"ogr-sym-3\",a:30,s:10px,dx:2)",
         "SYMBOL(id:\"motoolkit-sym-0,ogr-sym-3\",c:#000000,s:2.8mm,a:30)", "SYMBOL dx"},
        {0, "SYMBOL(s:-1,c:red,a:x)", "SYMBOL(id:\"motoolkit-sym-0,ogr-sym-3\",c:#000000,s:2.4mm)",
         "SYMBOL c, SYMBOL s, SYMBOL a"},
    };
    for (const auto& row : rows) {
        QzStyle style;
        EXPECT_EQ(ReadFeatureStyle(row.text, row.kind, style), row.leftOut) << row.text;
        EXPECT_EQ(FeatureStyle(style, row.kind), row.expected) << row.text;
    }
    QzStyle style = Sample();
    for (const char* const text : {"", " ", "@highway", "PEN", "PEN(", "PEN(c", "PEN(c:", "PEN(c:#FF0000", "PEN(:1)",
                                   "PEN(c:\"x)", "PEN(c:1)x", "PEN(c:1,)", "(c:1)", "BRUSH(fc:#000000)", ";"})
        EXPECT_EQ(ReadFeatureStyle(text, 1, style), "no") << text;
    EXPECT_EQ(ReadFeatureStyle("PEN(w:1)", 3, style), "no");
}

TEST(StyleExport, SldIsWrittenAsTheSchemasHaveIt) {
    const auto written = [](int kind, const std::string& expectedLeftOut, QzSldVersion version) {
        KeldArray<KeldMBString> leftOut;
        std::string text(ToSld(Sample(), kind, "Roads & paths", version, &leftOut).View());
        EXPECT_EQ(Joined(leftOut), expectedLeftOut);
        for (std::size_t at; (at = text.find("\r\n")) != std::string::npos;)
            text.erase(at, 2);
        return text;
    };
    const std::string begin =
        "<StyledLayerDescriptor version=\"1.0.0\" xmlns=\"http://www.opengis.net/sld\"><NamedLayer>"
        "<Name>Roads &amp; paths</Name><UserStyle><FeatureTypeStyle><Rule>";
    const std::string end = "</Rule></FeatureTypeStyle></UserStyle></NamedLayer></StyledLayerDescriptor>";
    const std::string stroke = "<Stroke><CssParameter name=\"stroke\">#1122ff</CssParameter>"
                               "<CssParameter name=\"stroke-width\">5</CssParameter></Stroke>";
    const auto mark = [](const std::string& name) {
        return "<Mark><WellKnownName>" + name +
               "</WellKnownName><Fill><CssParameter name=\"fill\">#1122ff</CssParameter></Fill></Mark>";
    };
    EXPECT_EQ(written(0, "fill back colour", QzSldVersion::Sld10),
              begin + "<PointSymbolizer><Graphic>" + mark("motoolkit-sym-5") + mark("circle") +
                  "<Opacity>0.4</Opacity><Size>10</Size><Rotation>-30.5</Rotation></Graphic></PointSymbolizer>" + end);
    EXPECT_EQ(written(1, "", QzSldVersion::Sld10),
              begin + "<Name>motoolkit-pen--7</Name><LineSymbolizer>" + stroke + "</LineSymbolizer>" + end);
    EXPECT_EQ(written(2, "fill back colour", QzSldVersion::Sld10),
              begin + "<Name>motoolkit-pen--7 motoolkit-brush-6</Name><PolygonSymbolizer>" +
                  "<Fill><CssParameter name=\"fill\">#778899</CssParameter>" +
                  "<CssParameter name=\"fill-opacity\">0.4</CssParameter></Fill>" + stroke + "</PolygonSymbolizer>" +
                  end);
    EXPECT_EQ(written(1, "", QzSldVersion::Se11),
              "<StyledLayerDescriptor version=\"1.1.0\" xmlns=\"http://www.opengis.net/sld\" "
              "xmlns:se=\"http://www.opengis.net/se\"><NamedLayer><se:Name>Roads &amp; paths</se:Name><UserStyle>"
              "<se:FeatureTypeStyle><se:Rule><se:Name>motoolkit-pen--7</se:Name><se:LineSymbolizer><se:Stroke>"
              "<se:SvgParameter name=\"stroke\">#1122ff</se:SvgParameter>"
              "<se:SvgParameter name=\"stroke-width\">5</se:SvgParameter></se:Stroke></se:LineSymbolizer>"
              "</se:Rule></se:FeatureTypeStyle></UserStyle></NamedLayer></StyledLayerDescriptor>");
    EXPECT_EQ(ToSld(Sample(), 3, "a"), "");
    EXPECT_EQ(ToSld(Sample(), -1, "a"), "");
    EXPECT_EQ(ToSld(Sample(), 1, KeldMBString("a\0b", 3)), "");
}

TEST(StyleExport, SldOfOthersIsRead) {
    const struct {
        int kind;
        const char* text;
        const char* expected; // as a feature style
        const char* leftOut;
    } rows[] = {
        // What the standard's own text gives for each symbolizer.
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
         "<PointSymbolizer><Graphic><Mark><WellKnownName>star</WellKnownName><Fill><CssParameter name=\"fill\">#ff0000"
         "</CssParameter></Fill></Mark><Size>8.0</Size></Graphic></PointSymbolizer>",
         "SYMBOL(id:\"motoolkit-sym-0,ogr-sym-3\",c:#ff0000,s:2.2mm)", "WellKnownName"},
        {0,
         "<se:PointSymbolizer><se:Graphic><se:ExternalGraphic/><se:Mark><se:WellKnownName>circle</se:WellKnownName>"
         "<se:Fill><se:SvgParameter name=\"fill\"><ogc:Literal> #00ff00 </ogc:Literal></se:SvgParameter>"
         "<se:SvgParameter name=\"fill-opacity\">0.5</se:SvgParameter></se:Fill></se:Mark><se:Opacity>0.5</se:Opacity>"
         "<se:Size>10</se:Size><se:Rotation>45</se:Rotation><se:AnchorPoint/></se:Graphic></se:PointSymbolizer>",
         "SYMBOL(id:\"motoolkit-sym-0,ogr-sym-3\",c:#00ff0040,s:2.8mm,a:45)", "ExternalGraphic, AnchorPoint"},
        {0, "<PointSymbolizer><Graphic><Mark><Stroke/></Mark></Graphic></PointSymbolizer>",
         "SYMBOL(id:\"motoolkit-sym-0,ogr-sym-3\",c:#000000,s:1.7mm)", ""},
        {2, "<PolygonSymbolizer/>", "BRUSH(fc:#77889900,bc:#44556600);PEN(c:#1122ff,w:0mm)", ""},
        {2, "<PolygonSymbolizer><Fill><GraphicFill/></Fill></PolygonSymbolizer>",
         "BRUSH(fc:#808080,bc:#445566);PEN(c:#1122ff,w:0mm)", "GraphicFill"},
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
        EXPECT_EQ(ReadSld(row.text, row.kind, style), row.leftOut) << row.text;
        EXPECT_EQ(FeatureStyle(style, row.kind), row.expected) << row.text;
    }
    QzStyle style;
    for (const char* const text :
         {"", "PEN(w:1)", "<LineSymbolizer", "<PointSymbolizer/>", "<Rule/>", "<x><LineSymbolizer/></x>",
          "<Rule><NamedLayer><LineSymbolizer/></NamedLayer></Rule>"})
        EXPECT_EQ(ReadSld(text, 1, style), "no") << text;
    EXPECT_EQ(ReadSld("<PointSymbolizer/>", 3, style), "no");
}

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
        const auto version = random.Chance() ? QzSldVersion::Sld10 : QzSldVersion::Se11;
        const KeldMBString text =
            isSld ? ToSld(style, kind, "n", version, &leftOut) : ToFeatureStyle(style, kind, &leftOut);
        QzStyle read;
        EXPECT_TRUE(isSld ? FromSld(text, kind, read) : FromFeatureStyle(text, kind, read));
        // Whether a field, of those that the kind has, comes back is known here without looking at what was read.
        const std::string names = ", " + Joined(leftOut) + ",";
        const auto check = [&](const char* kinds, const char* name, bool comesBack) {
            const bool isOfKind = std::string(kinds).find(std::to_string(kind)) != std::string::npos;
            EXPECT_EQ(names.find(std::string(", ") + name + ",") != std::string::npos, isOfKind && !comesBack)
                << name << ' ' << text.Cstr() << ' ' << names;
            return isOfKind && comesBack;
        };
        const auto same = [&](const char* kinds, const char* name, auto get, bool comesBack = true) {
            EXPECT_TRUE(!check(kinds, name, comesBack) || (read.*get)() == (style.*get)()) << name;
        };
        using S = QzStyle;
        same("012", "line colour", &S::GetLineColor);
        same("0", "marker style", &S::GetMarkerStyle);
        same("0", "marker size", &S::GetMarkerSize);
        same("0", "marker angle", &S::GetMarkerAngle);
        same("0", "marker width", &S::GetMarkerWidth, style.GetMarkerWidth() == style.GetMarkerSize());
        same("0", "marker height", &S::GetMarkerHeight, style.GetMarkerHeight() == style.GetMarkerSize());
        same("12", "line style", &S::GetLineStyle);
        same("12", "line width", &S::GetLineWidth);
        same("2", "fill style", &S::GetFillStyle);
        same("2", "fill fore colour", &S::GetFillForeColor);
        same("02", "fill opacity", &S::GetFillOpaqueRate, style.GetFillOpaqueRate() <= 100);
        same("02", "fill gradient", &S::GetFillGradientType, style.GetFillGradientType() == 0);
        same("02", "fill angle", &S::GetFillAngle, style.GetFillAngle() == 0 || (kind == 2 && !isSld));
        same("02", "fill back colour", &S::GetFillBackColor,
             (kind == 2 && !isSld) || style.GetFillBackColor() == QzStyle().GetFillBackColor());
        same("2", "fill back opaque", &S::GetFillBackOpaque,
             isSld ? style.GetFillBackOpaque() != 0 : style.GetFillBackOpaque() == 0 || style.GetFillOpaqueRate() != 0);
        check("02", "fill centre", style.GetFillCenterOffsetX() == 0 && style.GetFillCenterOffsetY() == 0);
        check("012", "3D attributes", style.GetStyleEx() == nullptr);
        check("012", "fixed colour", !style.IsFixedColor());
        check("0", "scale by symbol", !style.IsScaleBySymbol());
        check("0", "marker symbol", style.GetMarkSymbolStyle() == nullptr);
        check("12", "line symbol", style.GetLineSymbolStyle() == nullptr);
        check("2", "fill symbol", style.GetFillSymbolStyle() == nullptr);
        whole += leftOut.IsEmpty() ? 1 : 0;
    }
    EXPECT_GT(whole, 100); // the list is not simply full
}

// The examples of docs/styles.md, which readers compare their own with.
TEST(StyleGuide, ItsExamplesAreWhatIsWritten) {
    QzStyle style;
    style.SetLineStyle(5);
    style.SetLineWidth(0.3);
    style.SetLineColor(KELDRGB(17, 34, 51));
    style.SetFillStyle(6);
    style.SetFillForeColor(KELDRGB(119, 136, 153));
    style.SetFillBackColor(KELDRGB(68, 85, 102));
    style.SetFillBackOpaque(0);
    style.SetFillOpaqueRate(50);
    style.SetFillGradientType(2);
    style.SetFillAngle(45);
    style.SetFillCenterOffsetX(-2);
    style.SetFillCenterOffsetY(3);
    unsigned char symbol[] = {1, 2, 3, 4, 5};
    style.SetFillSymbolStyle(symbol, sizeof(symbol), 7, 1);
    style.SetExtendHeight(12.5F);
    style.SetSideTexture("brick");

    const std::string guide = ReadBytes(STYLES_GUIDE);
    const auto block = [&](const std::string& heading, const std::string& fence) {
        const std::size_t begin = guide.find(fence + "\n", guide.find(heading)) + fence.size() + 1;
        return guide.substr(begin, guide.find("```", begin) - begin);
    };
    constexpr std::size_t Column = 27; // of what the bytes mean
    std::istringstream lines(block("### A record, byte for byte", "```text"));
    std::string record;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream bytes(line.substr(0, Column));
        for (std::string byte; bytes >> byte;)
            record += static_cast<char>(std::stoi(byte, nullptr, 16));
    }
    QzMemoryStream stream;
    style.Save(stream, 2);
    EXPECT_EQ(record, std::string(reinterpret_cast<const char*>(stream.GetData()), 118));
    EXPECT_EQ(stream.GetLength(), 118);

    std::string xml(style.ToXML(0, "").View());
    xml.erase(std::remove(xml.begin(), xml.end(), '\r'), xml.end());
    EXPECT_EQ(block("### An element, whole", "```xml"), xml);

    std::string leftOut;
    EXPECT_EQ(block("## Feature styles and SLD", "```text"), FeatureStyle(style, 2, &leftOut) + "\n");
    EXPECT_EQ(leftOut, "fill gradient, fill centre, fill symbol, 3D attributes");
}
