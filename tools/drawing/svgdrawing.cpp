#include "svgdrawing.h"

#include <algorithm>
#include <cmath>

using namespace Qzc;

namespace {

// ---- Texts

// What printf would print; a name that a document is to show goes through Escaped first.
template <class... Arguments>
std::string Formatted(const char* format, Arguments... arguments) {
    KeldMBString text;
    text.Format(format, arguments...);
    return std::string(text.View());
}

std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '&': escaped += "&amp;"; break;
        case '<': escaped += "&lt;"; break;
        case '>': escaped += "&gt;"; break;
        case '\'': escaped += "&apos;"; break;
        case '"': escaped += "&quot;"; break;
        default: escaped += c;
        }
    }
    return escaped;
}

// Two decimals at most, so that the file stays small.
std::string Number(double value) {
    std::string text = Formatted("%.2f", value);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.')
        text.pop_back();
    return text == "-0" ? "0" : text;
}

std::string Web(unsigned int color) {
    return Formatted("#%02x%02x%02x", KELDREDVAL(color), KELDGREENVAL(color), KELDBLUEVAL(color));
}

// From one colour (0) to another (1).
unsigned int Mixed(unsigned int from, unsigned int to, double part) {
    const auto mix = [=](int a, int b) { return static_cast<int>(std::lround(a + (b - a) * part)); };
    return KELDRGB(mix(KELDREDVAL(from), KELDREDVAL(to)), mix(KELDGREENVAL(from), KELDGREENVAL(to)),
                   mix(KELDBLUEVAL(from), KELDBLUEVAL(to)));
}

std::string SymbolText(const unsigned char* bytes, unsigned int length) {
    return std::string(reinterpret_cast<const char*>(bytes), length);
}

// ---- Symbols

// In a square of 24 around the middle.
const char* MarkerPath(int markerStyle) {
    switch (markerStyle) {
    case MarkerStyle::Lighthouse:
        return "M-4 12l1.4-16h5.2L4 12zM-3.6-5.2v-3.4L0-11.8l3.6 3.2v3.4zM5-8l7-2.5v6.6L5-6.2zM-5-8l-7-2.5v6.6l7-2.3z";
    case MarkerStyle::Turbine:
        return "M-.9 2l-.8 10h3.4L.9 2zM-1.2-1l.6-11H.6l.6 11zM.6-1l10.1 6.5-.6 1L-.6 1zM-.6-1l-10.1 6.5.6 1L.6 1z";
    case MarkerStyle::Church:
        return "M-1-12h2v2.5h2.5v2H1v3L5-1v4h5v9h-7V7.5a3 3 0 0 0-6 0V12h-7V3h5v-4l4-3.5v-3h-2.5v-2H-1z";
    case MarkerStyle::Station:
        return "M-6-12H6q3 0 3 3V5q0 3-3 3l3 4H6L3 8h-6l-3 4h-3l3-4q-3 0-3-3V-9q0-3 3-3zM-6-8.5v7H6v-7zM-6.5 3.5a1.6 "
               "1.6 "
               "0 1 0 3.2 0a1.6 1.6 0 1 0-3.2 0zM3.3 3.5a1.6 1.6 0 1 0 3.2 0a1.6 1.6 0 1 0-3.2 0z";
    case MarkerStyle::Peak: return "M0-11l12 21h-24zM0-6.4l-3.8 6.7L-1.6-1 0 1.4 1.6-1l2.2 1.3z";
    case MarkerStyle::Tent: return "M0-10l12 20h-24zM0 0l-5 10H5z";
    case MarkerStyle::View:
        return "M-2.6 6a2.6 2.6 0 1 0 5.2 0a2.6 2.6 0 1 0-5.2 0zM-1.3 1L-2.2-12h4.4L1.3 1zM-3.6 2.2l-6.8-11 "
               "3.8-2.2L-1.7 1.2zM3.6 2.2l6.8-11-3.8-2.2L1.7 1.2z";
    default: return "M-11 0a11 11 0 1 0 22 0a11 11 0 1 0-22 0zM-5 0a5 5 0 1 0 10 0a5 5 0 1 0-10 0z";
    }
}

// The tile of a hatching: its size, and what is drawn in it.
struct Tile {
    int size;
    int turn;
    const char* path;
    double width; ///< of the strokes; 0: filled
};

Tile FillTile(int fillStyle) {
    switch (fillStyle) {
    case FillStyle::Diagonal: return {5, 45, "M0 0V5", 1.6};
    case FillStyle::Horizontal: return {10, 0, "M0 2.5H6M5 7.5H10M0 7.5H1", 1.4};
    case FillStyle::Waves: return {16, 0, "M0 5q4-4 8 0t8 0M-8 13q4-4 8 0t8 0 8 0 8 0", 0.7};
    default:
        return {9, 0,
                "M1.5 3a1.7 1.7 0 1 0 3.4 0a1.7 1.7 0 1 0-3.4 0zM6 7.5a1.7 1.7 0 1 0 3.4 0a1.7 1.7 "
                "0 1 0-3.4 0z",
                0};
    }
}

std::string Dashes(const QzStyle& style) {
    const double width = std::max(style.GetLineWidth() * SvgDrawing::Scale, 1.0);
    switch (style.GetLineStyle()) {
    case LineStyle::Dashed: return " stroke-dasharray='" + Number(width * 3) + ' ' + Number(width * 2) + "'";
    case LineStyle::Dotted: return " stroke-dasharray='0 " + Number(width * 2.5) + "' stroke-linecap='round'";
    default: return style.GetLineSymbolStyle() == nullptr ? " stroke-linecap='round'" : "";
    }
}

std::string StrokeOf(const QzStyle& style) {
    return "stroke='" + Web(style.GetLineColor()) + "' stroke-width='" +
           Number(style.GetLineWidth() * SvgDrawing::Scale) + "'" + Dashes(style);
}

} // namespace

void SvgDrawing::Marker(const QzStyle& style, double x, double y, double zoom) {
    constexpr double Square = 24;
    const std::string path = style.GetMarkSymbolStyle() != nullptr
                                 ? SymbolText(style.GetMarkSymbolStyle(), style.GetMarkerSymbolLength())
                                 : MarkerPath(style.GetMarkerStyle());
    std::string transform = "translate(" + Number(x) + ' ' + Number(y) + ')';
    if (style.GetMarkerAngle() != 0)
        transform += " rotate(" + Number(style.GetMarkerAngle()) + ')';
    transform += " scale(" + Number(style.GetMarkerWidth() * Scale * zoom / Square) + ' ' +
                 Number(style.GetMarkerHeight() * Scale * zoom / Square) + ')';
    std::string opacity;
    if (style.GetFillOpaqueRate() < 100)
        opacity = " opacity='" + Number(style.GetFillOpaqueRate() / 100.0) + "'";
    // With a rim of paper, so that it stands out wherever it stands.
    m_body += "<path d='" + Escaped(path) + "' fill='" + Web(style.GetLineColor()) + "'" + opacity +
              " fill-rule='evenodd' stroke='#fffdf6' stroke-width='3.5' stroke-linejoin='round' paint-order='stroke' "
              "transform='" +
              transform + "'/>\n";
}

void SvgDrawing::Line(const QzStyle& style, const std::string& path) {
    m_body += "<path d='" + path + "' fill='none' stroke-linejoin='round' " + StrokeOf(style) + "/>\n";
    if (style.GetLineSymbolStyle() == nullptr)
        return;
    // The symbol is what crosses the line: its width, and dash and gap along the line.
    const std::string symbol = SymbolText(style.GetLineSymbolStyle(), style.GetLineSymbolLength());
    const std::size_t blank = std::min(symbol.find(' '), symbol.size());
    m_body += "<path d='" + path + "' fill='none' stroke='" + Web(style.GetLineColor()) + "' stroke-width='" +
              Escaped(symbol.substr(0, blank)) + "' stroke-dasharray='" + Escaped(symbol.substr(blank)) + "'/>\n";
}

// The id of what a region is painted with: a gradient from the fore to the back colour. SVG has linear and radial
// ones; of the others a drawing in the square from -1 to 1 is put together.
std::string SvgDrawing::Paint(const QzStyle& style) {
    std::string& id = m_paints[style];
    if (!id.empty())
        return id;
    id = Formatted("p%d", ++m_count);
    const unsigned int fore = style.GetFillForeColor();
    const unsigned int back = style.GetFillBackColor();
    const std::string stops = "<stop stop-color='" + Web(fore) + "'/><stop offset='1' stop-color='" + Web(back) + "'/>";
    switch (style.GetFillGradientType()) {
    case 1:
        m_definitions += "<linearGradient id='" + id + "' gradientTransform='rotate(" + Number(style.GetFillAngle()) +
                         " .5 .5)'>" + stops + "</linearGradient>\n";
        break;
    case 2:
        m_definitions += Formatted("<radialGradient id='%s' cx='%d%%' cy='%d%%' r='70%%'>", id.c_str(),
                                   50 + style.GetFillCenterOffsetX(), 50 + style.GetFillCenterOffsetY()) +
                         stops + "</radialGradient>\n";
        break;
    case 3: {
        constexpr int Wedges = 48;
        constexpr double Turn = 6.283185307179586;
        m_definitions +=
            Formatted("<g id='%s' transform='translate(%s %s) rotate(%s)'>\n", id.c_str(),
                      Number(style.GetFillCenterOffsetX() / 50.0).c_str(),
                      Number(style.GetFillCenterOffsetY() / 50.0).c_str(), Number(style.GetFillAngle()).c_str());
        for (int i = 0; i < Wedges; ++i) { // there and back again, without an edge; each a little under the next
            const double part = 1 - std::abs(1 - 2.0 * (i + 0.5) / Wedges);
            const double from = Turn * i / Wedges;
            const double to = Turn * (i + 1.3) / Wedges;
            m_definitions += "<path d='M0 0L" + Number(3 * std::cos(from)) + ' ' + Number(3 * std::sin(from)) + ' ' +
                             Number(3 * std::cos(to)) + ' ' + Number(3 * std::sin(to)) + "z' fill='" +
                             Web(Mixed(fore, back, part)) + "'/>\n";
        }
        m_definitions += "</g>\n";
        break;
    }
    default: {
        constexpr int Steps = 24;
        m_definitions += "<g id='" + id + "' transform='rotate(" + Number(style.GetFillAngle()) + ")'>\n";
        for (int i = Steps; i > 0; --i) {
            const double half = i == Steps ? 2 : 1.0 * i / Steps;
            m_definitions += "<path d='M" + Number(-half) + ' ' + Number(-half) + "h" + Number(2 * half) + 'v' +
                             Number(2 * half) + 'h' + Number(-2 * half) + "z' fill='" +
                             Web(Mixed(fore, back, (i - 0.5) / Steps)) + "'/>\n";
        }
        m_definitions += "</g>\n";
    }
    }
    return id;
}

// The id of a region's hatching, or of the symbol that it is strewn with. On a gradient it has the colour of the
// outline, for the gradient has used up the others.
std::string SvgDrawing::Pattern(const QzStyle& style) {
    std::string& id = m_patterns[style];
    if (!id.empty())
        return id;
    id = Formatted("h%d", ++m_count);
    const unsigned int color = style.GetFillGradientType() != 0 ? style.GetLineColor() : style.GetFillForeColor();
    Tile tile = FillTile(style.GetFillStyle());
    std::string path = tile.path;
    if (style.GetFillSymbolStyle() != nullptr) {
        tile = {20, 0, "", 0};
        path = SymbolText(style.GetFillSymbolStyle(), style.GetFillSymbolLength());
    }
    m_definitions += Formatted("<pattern id='%s' width='%d' height='%d' patternUnits='userSpaceOnUse' "
                               "patternTransform='rotate(%d)'>",
                               id.c_str(), tile.size, tile.size, tile.turn) +
                     "<path d='" + Escaped(path) + "' " +
                     (tile.width > 0 ? "fill='none' stroke-width='" + Number(tile.width) + "' stroke='" : "fill='") +
                     Web(color) + "'/></pattern>\n";
    return id;
}

void SvgDrawing::Region(const QzStyle& style, const std::string& path, const Box& box) {
    const std::string id = Formatted("r%d", ++m_count);
    const bool hasPattern = style.GetFillStyle() != FillStyle::Solid || style.GetFillSymbolStyle() != nullptr;
    const auto paint = [&](const std::string& with) { m_body += "<use href='#" + id + "' " + with + "/>\n"; };
    m_definitions += "<path id='" + id + "' d='" + path + "'/>\n";

    if (style.GetFillOpaqueRate() < 100)
        m_body += "<g fill-opacity='" + Number(style.GetFillOpaqueRate() / 100.0) + "'>\n";
    switch (style.GetFillGradientType()) {
    case 0:
        if (!hasPattern)
            paint("fill='" + Web(style.GetFillForeColor()) + "'");
        else if (style.GetFillBackOpaque() != 0)
            paint("fill='" + Web(style.GetFillBackColor()) + "'");
        break;
    case 1:
    case 2: paint("fill='url(#" + Paint(style) + ")'"); break;
    default:
        m_definitions += "<clipPath id='c" + id + "'><use href='#" + id + "'/></clipPath>\n";
        m_body += "<g clip-path='url(#c" + id + ")'><use href='#" + Paint(style) + "' transform='translate(" +
                  Number(box.x + box.width / 2) + ' ' + Number(box.y + box.height / 2) + ") scale(" +
                  Number(box.width / 2) + ' ' + Number(box.height / 2) + ")'/></g>\n";
    }
    if (hasPattern)
        paint("fill='url(#" + Pattern(style) + ")'");
    if (style.GetFillOpaqueRate() < 100)
        m_body += "</g>\n";
    if (style.GetLineWidth() > 0)
        paint("fill='none' " + StrokeOf(style));
}

void SvgDrawing::Block(const QzStyle& style, double x, double y, double width, double depth) {
    const double height = style.GetExtendHeight() * Scale / 2;
    const unsigned int roof = style.GetFillColor().GetValue();
    const std::string edges =
        "stroke='" + Web(style.GetLineColor3D().GetValue()) + "' stroke-width='1' stroke-linejoin='round'";
    const auto face = [&](const std::string& path, double shade) {
        const std::string fill = Web(Mixed(roof, 0, shade));
        m_body += "<path d='M" + path + "z' ";
        switch (style.GetFill3DMode()) {
        case FILL_LINE: m_body += "fill='none' " + edges; break;
        case FILL_FACE: m_body += "fill='" + fill + "'"; break;
        default: m_body += "fill='" + fill + "' " + edges;
        }
        m_body += "/>\n";
    };
    const std::string across = 'l' + Number(depth) + ' ' + Number(-depth / 2);
    const std::string back = 'l' + Number(-depth) + ' ' + Number(depth / 2);
    face(Number(x) + ' ' + Number(y) + 'v' + Number(-height) + 'h' + Number(width) + 'v' + Number(height), 0.18);
    face(Number(x + width) + ' ' + Number(y) + 'v' + Number(-height) + across + 'v' + Number(height), 0.36);
    face(Number(x) + ' ' + Number(y - height) + across + 'h' + Number(width) + back, 0);
}

void SvgDrawing::Text(double x, double y, const std::string& text, const char* attributes) {
    m_body += "<text x='" + Number(x) + "' y='" + Number(y) + "' " + attributes + ">" + Escaped(text) + "</text>\n";
}

std::string SvgDrawing::Document(int width, int height) const {
    return Formatted("<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 %d %d' width='%d' height='%d' "
                     "font-family='Helvetica, Arial, DejaVu Sans, sans-serif'>\n",
                     width, height, width, height) +
           "<defs>\n" + m_definitions + "</defs>\n" + m_body + "</svg>\n";
}
