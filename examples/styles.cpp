// Makes drawing styles for a map's legend, takes each through all of its forms (record, record of all fields,
// XML in both dialects), prints the legend as a table and draws it as an SVG file:
//     styles [FILE.svg]

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "stream/qzfile.h"
#include "stream/qzmemorystream.h"
#include "toolkit/qzstyle.h"

using namespace Qzc;

namespace {

enum Kind { Point = 0, Line = 1, Region = 2 };

struct Entry {
    Kind kind;
    KeldMBString name;
    QzStyle style;
};

// ---- The styles

QzStyle Marker(unsigned int color, double width, double height, double angle) {
    QzStyle style;
    style.SetLineColor(color); // the marker's colour too
    style.SetMarkerSize(height);
    style.SetMarkerWidth(width);
    style.SetMarkerHeight(height);
    style.SetMarkerAngle(angle);
    style.SetIconName("lighthouse <white & red>");
    style.SetAltitudeMode(RelativeToGround);
    style.SetMarker3D(1);
    style.SetMarker3DScaleZ(2.5);
    return style;
}

QzStyle Stroke(unsigned int color, double width, int lineStyle) {
    QzStyle style;
    style.SetLineColor(color);
    style.SetLineWidth(width);
    style.SetLineStyle(lineStyle);
    // Making the 3D attributes first: then the colour that is set goes to both, and alpha is kept.
    style.SetLineColor3D(QzColorValue3D::White);
    style.SetLineColor(color);
    style.SetPipeSides(12);
    style.SetFiletEnable(1);
    return style;
}

QzStyle Fill(unsigned int fore, unsigned int back, unsigned char percent, unsigned char gradient, double angle) {
    QzStyle style;
    style.SetFillForeColor(fore);
    style.SetFillBackColor(back);
    style.SetFillOpaqueRate(percent);
    style.SetFillGradientType(gradient);
    style.SetFillAngle(angle);
    style.SetLineColor(KELDRGB(70, 70, 70));
    style.SetLineWidth(0.3);
    style.SetFill3DMode(FILL_FACEANDLINE);
    style.SetExtendHeight(12.5F);
    style.SetSideTexture("bricks.png");
    return style;
}

std::vector<Entry> MakeLegend() {
    QzStyle lake = Fill(KELDRGB(215, 240, 255), KELDRGB(40, 110, 190), 85, 2, 0);
    lake.SetFillCenterOffsetX(20);
    lake.SetFillCenterOffsetY(-15);
    unsigned char hatching[] = {0x48, 0x41, 0x54, 0x43, 0x48};
    lake.SetFillSymbolStyle(hatching, sizeof(hatching), 1, 1);
    return {{Point, "Lighthouse", Marker(KELDRGB(200, 30, 30), 3.6, 6, 0)},
            {Point, "Wind turbine", Marker(KELDRGB(30, 90, 160), 2.4, 7.2, 30)},
            {Line, "Railway", Stroke(KELDRGB(40, 40, 40), 0.8, 2)},
            {Line, "River", Stroke(KELDRGB(40, 120, 210), 1.4, 0)},
            {Region, "Forest", Fill(KELDRGB(60, 140, 60), KELDRGB(200, 230, 170), 100, 1, 45)},
            {Region, "Lake", lake}};
}

// ---- The forms

// The sizes of the forms in bytes; 0 for one that does not give the style back.
struct Forms {
    int record = 0;
    int allFields = 0;
    int xml = 0;
    int xml2003 = 0;
};

int RecordSize(const QzStyle& style, int kind) {
    QzMemoryStream stream;
    style.Save(stream, kind);

    // The size word tells how long the record is; the style is given what is behind it, here all the rest.
    stream.Seek(0);
    std::uint32_t size = 0;
    stream >> size;
    QzMemoryStream record(stream.GetData() + stream.GetPosition(), stream.GetRemaining());
    QzStyle copy;
    copy.Load(record, kind);

    QzMemoryStream again; // fields of other kinds are not in the record: so the records are compared
    copy.Save(again, kind);
    const bool same = record.IsGood() && again.GetLength() == stream.GetLength() &&
                      std::memcmp(again.GetData(), stream.GetData(), size) == 0;
    return same ? static_cast<int>(size) : 0;
}

int AllFieldsSize(const QzStyle& style) {
    QzMemoryStream stream;
    style.SaveAll(stream);
    stream.Seek(0);
    QzStyle copy;
    const bool loaded = copy.LoadAll(stream, static_cast<int>(stream.GetLength())) != 0;
    return loaded && QzStyle::IsSameFillStyle(copy, style) && QzStyle::IsSameLineStyle(copy, style)
               ? static_cast<int>(stream.GetLength())
               : 0;
}

int XmlSize(const QzStyle& style, int version) {
    const KeldMBString xml = style.ToXML(version, "");
    QzStyle copy;
    copy.FromXML(xml, version);
    // 3D colours are decimals in the text, which hold six digits of them: so the texts are compared.
    return copy.ToXML(version, "") == xml ? xml.GetLength() : 0;
}

// ---- The legend as a table

KeldMBString Drawing(const Entry& entry) {
    const QzStyle& style = entry.style;
    KeldMBString text;
    switch (entry.kind) {
    case Point:
        text.Format("marker %.1f x %.1f, turned by %.1f, %s", style.GetMarkerWidth(), style.GetMarkerHeight(),
                    style.GetMarkerAngle(), QzStyle::ConvertRGBColor(style.GetLineColor()).Cstr());
        break;
    case Line:
        text.Format("line %.1f wide, style %d, %s", style.GetLineWidth(), style.GetLineStyle(),
                    QzStyle::ConvertRGBColor(style.GetLineColor()).Cstr());
        break;
    case Region:
        text.Format("%s to %s, %d %%, gradient %d", QzStyle::ConvertRGBColor(style.GetFillForeColor()).Cstr(),
                    QzStyle::ConvertRGBColor(style.GetFillBackColor()).Cstr(), style.GetFillOpaqueRate(),
                    style.GetFillGradientType());
        break;
    }
    return text;
}

bool PrintLegend(const std::vector<Entry>& legend) {
    std::printf("  %-13s %-55s %7s %7s %7s %7s\n", "", "", "record", "fixed", "xml", "2003");
    bool complete = true;
    for (const Entry& entry : legend) {
        const Forms forms = {RecordSize(entry.style, entry.kind), AllFieldsSize(entry.style), XmlSize(entry.style, 0),
                             XmlSize(entry.style, 20031211)};
        std::printf("  %-13s %-55s %7d %7d %7d %7d\n", entry.name.Cstr(), Drawing(entry).Cstr(), forms.record,
                    forms.allFields, forms.xml, forms.xml2003);
        complete = complete && forms.record != 0 && forms.allFields != 0 && forms.xml != 0 && forms.xml2003 != 0;
    }
    return complete;
}

// ---- The legend as a drawing

constexpr double Scale = 5; // pixels for a unit of size
constexpr int RowHeight = 56;
constexpr int Left = 16;
constexpr int SampleWidth = 120;

KeldMBString Web(unsigned int color) {
    KeldMBString text;
    text.Format("#%02x%02x%02x", KELDREDVAL(color), KELDGREENVAL(color), KELDBLUEVAL(color));
    return text;
}

void DrawMarker(KeldMBString& svg, const QzStyle& style, int top) {
    const double width = style.GetMarkerWidth() * Scale;
    const double height = style.GetMarkerHeight() * Scale;
    KeldMBString text;
    text.Format("  <path d='M 0 %.1f L %.1f 0 L 0 %.1f L %.1f 0 Z' fill='%s' "
                "transform='translate(%d %d) rotate(%.1f)'/>\n",
                -height / 2, width / 2, height / 2, -width / 2, Web(style.GetLineColor()).Cstr(),
                Left + SampleWidth / 2, top + RowHeight / 2, style.GetMarkerAngle());
    svg += text;
}

void DrawLine(KeldMBString& svg, const QzStyle& style, int top) {
    KeldMBString dashes;
    if (style.GetLineStyle() != 0)
        dashes.Format(" stroke-dasharray='%d'", 6 * style.GetLineStyle());
    KeldMBString text;
    text.Format("  <path d='M %d %d q 30 -24 60 0 t 60 0' fill='none' stroke='%s' stroke-width='%.1f'%s/>\n", Left,
                top + RowHeight / 2, Web(style.GetLineColor()).Cstr(), style.GetLineWidth() * Scale, dashes.Cstr());
    svg += text;
}

// What a region is painted with: its fore colour, or a gradient from it to the back colour.
KeldMBString Paint(KeldMBString& svg, const QzStyle& style, int id) {
    KeldMBString text;
    if (style.GetFillGradientType() == 0)
        return Web(style.GetFillForeColor());
    const char* element = style.GetFillGradientType() == 1 ? "linearGradient" : "radialGradient";
    text.Format("  <%s id='gradient%d'", element, id);
    svg += text;
    if (style.GetFillGradientType() == 1)
        text.Format(" gradientTransform='rotate(%.1f 0.5 0.5)'>\n", style.GetFillAngle());
    else
        text.Format(" cx='%d%%' cy='%d%%'>\n", 50 + style.GetFillCenterOffsetX(), 50 + style.GetFillCenterOffsetY());
    svg += text;
    text.Format("    <stop offset='0' stop-color='%s'/>\n    <stop offset='1' stop-color='%s'/>\n  </%s>\n",
                Web(style.GetFillForeColor()).Cstr(), Web(style.GetFillBackColor()).Cstr(), element);
    svg += text;
    text.Format("url(#gradient%d)", id);
    return text;
}

void DrawRegion(KeldMBString& svg, const QzStyle& style, int top, int id) {
    const KeldMBString paint = Paint(svg, style, id);
    KeldMBString text;
    text.Format("  <rect x='%d' y='%d' width='%d' height='%d' rx='6' fill='%s' fill-opacity='%.2f' stroke='%s' "
                "stroke-width='%.1f'/>\n",
                Left, top + 8, SampleWidth, RowHeight - 16, paint.Cstr(), style.GetFillOpaqueRate() / 100.0,
                Web(style.GetLineColor()).Cstr(), style.GetLineWidth() * Scale);
    svg += text;
}

KeldMBString Draw(const std::vector<Entry>& legend) {
    const int height = static_cast<int>(legend.size()) * RowHeight + 8;
    KeldMBString svg;
    svg.Format("<svg xmlns='http://www.w3.org/2000/svg' width='320' height='%d' font-family='sans-serif' "
               "font-size='16'>\n  <rect width='320' height='%d' fill='#ffffff'/>\n",
               height, height);
    for (std::size_t i = 0; i < legend.size(); ++i) {
        const int top = static_cast<int>(i) * RowHeight + 4;
        switch (legend[i].kind) {
        case Point: DrawMarker(svg, legend[i].style, top); break;
        case Line: DrawLine(svg, legend[i].style, top); break;
        case Region: DrawRegion(svg, legend[i].style, top, static_cast<int>(i)); break;
        }
        KeldMBString text;
        text.Format("  <text x='%d' y='%d' fill='#222222'>%s</text>\n", Left + SampleWidth + 24,
                    top + RowHeight / 2 + 5, legend[i].name.Cstr());
        svg += text;
    }
    return svg += "</svg>\n";
}

} // namespace

int main(int argc, char** argv) {
    if (argc > 2) {
        std::fprintf(stderr, "usage: styles [FILE.svg]\n");
        return 2;
    }
    const std::vector<Entry> legend = MakeLegend();
    std::printf("The legend's styles, with the bytes of each of their forms, written and read back:\n");
    if (!PrintLegend(legend)) {
        std::fprintf(stderr, "styles: a form did not give its style back\n");
        return 1;
    }
    std::printf("\nThe forest as an XML element:\n%s", legend[4].style.ToXML(20031211, "").Cstr());
    if (argc == 2) {
        KeldMBString error;
        if (!QzFile::ReplaceAll(argv[1], Draw(legend), error)) {
            std::fprintf(stderr, "styles: %s: %s\n", argv[1], error.Cstr());
            return 1;
        }
        std::printf("\n%s shows the legend.\n", argv[1]);
    }
    return 0;
}
