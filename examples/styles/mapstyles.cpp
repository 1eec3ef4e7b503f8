#include "mapstyles.h"

#include <cstring>

using namespace Qzc;

namespace {

// ---- The parts of styles

QzStyle Marker(int markerStyle, unsigned int color, double width, double height, double angle = 0) {
    QzStyle style;
    style.SetMarkerStyle(markerStyle);
    style.SetLineColor(color); // the marker's colour too
    style.SetMarkerSize(height);
    style.SetMarkerWidth(width);
    style.SetMarkerHeight(height);
    style.SetMarkerAngle(angle);
    return style;
}

QzStyle Stroke(unsigned int color, double width, int lineStyle = LineStyle::Solid) {
    QzStyle style;
    style.SetLineColor(color);
    style.SetLineWidth(width);
    style.SetLineStyle(lineStyle);
    return style;
}

std::vector<QzStyle> Cased(unsigned int color, unsigned int casing, double width) {
    return {Stroke(casing, width + 0.6), Stroke(color, width)};
}

QzStyle Fill(unsigned int fore, unsigned int back, int fillStyle, unsigned int outline, double width) {
    QzStyle style = Stroke(outline, width);
    style.SetFillStyle(fillStyle);
    style.SetFillForeColor(fore);
    style.SetFillBackColor(back);
    return style;
}

QzStyle Gradient(unsigned char type, unsigned int fore, unsigned int back, double angle, unsigned int outline,
                 int fillStyle = FillStyle::Solid) {
    QzStyle style = Fill(fore, back, fillStyle, outline, 0.2);
    style.SetFillGradientType(type);
    style.SetFillAngle(angle);
    return style;
}

// The 3D attributes of a building. Its 2D colours come first, so that the conversion takes them along.
QzStyle Building(unsigned int color, QzFill3DMode mode, float height) {
    QzStyle style = Fill(color, color, FillStyle::Solid, KELDRGB(96, 62, 44), 0.2);
    style.Convert2DTo3DStyle();
    style.SetFill3DMode(mode);
    style.SetExtendHeight(height);
    style.SetSideTexture("bricks <red & grey>.png");
    style.SetAltitudeMode(RelativeToGround);
    return style;
}

// Symbols of one's own are bytes that the toolkit does not look into. These are outlines for a marker and for
// the tile of a fill, and the width, dash and gap of what crosses a line.
constexpr char Anchor[] = "M-3-8.5a3 3 0 1 0 6 0a3 3 0 1 0-6 0zM-1.2-8.5a1.2 1.2 0 1 0 2.4 0a1.2 1.2 0 1 0-2.4 0z"
                          "M-1.1-5.6h2.2v2H5v2H1.1V8.6C5 8 7.6 5.6 8.2 2l2.4 1.4C9.6 8.4 5.6 11.6 0 11.6S-9.6 8.4-10.6 "
                          "3.4L-8.2 2C-7.6 5.6-5 8-1.1 8.6V-1.6H-5v-2h3.9z";
constexpr char Trees[] = "M5 1l4 7H6.2v3H3.8V8H1zM14 9l4 7h-2.8v3h-2.4v-3H10z";
constexpr char CrossTies[] = "8 1.6 5.6";

template <std::size_t Size>
using Setter = unsigned char (QzStyle::*)(unsigned char*, unsigned int, unsigned int, unsigned char);

template <std::size_t Size>
QzStyle With(QzStyle style, Setter<Size> set, const char (&symbol)[Size]) {
    unsigned char bytes[Size - 1];
    std::memcpy(bytes, symbol, sizeof(bytes));
    (style.*set)(bytes, sizeof(bytes), 1, 1);
    return style;
}

} // namespace

std::vector<const Entry*> Legend::All() const {
    return {&meadow,  &forest, &lake,    &hill,     &terraces, &vineyard,   &marsh,   &orchard, &reserve, &town,
            &solid,   &frame,  &both,    &motorway, &road,     &lane,       &track,   &railway, &river,   &ferry,
            &village, &church, &station, &peak,     &view,     &lighthouse, &harbour, &tent,    &turbine, &planned};
}

Legend MakeLegend() {
    Legend legend;
    const unsigned int water = KELDRGB(52, 120, 168);

    legend.meadow = {
        Region, "Meadow", {Fill(KELDRGB(238, 240, 214), 0, FillStyle::Solid, KELDRGB(196, 200, 160), 0.1)}};
    legend.forest = {Region,
                     "Forest",
                     {With(Gradient(1, KELDRGB(176, 210, 150), KELDRGB(104, 163, 112), 35, KELDRGB(58, 112, 72)),
                           &QzStyle::SetFillSymbolStyle, Trees)}};
    QzStyle lake = Gradient(2, KELDRGB(222, 242, 250), KELDRGB(104, 172, 212), 0, water, FillStyle::Waves);
    lake.SetFillCenterOffsetX(-8);
    lake.SetFillCenterOffsetY(12);
    legend.lake = {Region, "Lake", {lake}};
    QzStyle hill = Gradient(3, KELDRGB(250, 240, 205), KELDRGB(158, 138, 98), 135, KELDRGB(176, 160, 120));
    hill.SetFillCenterOffsetX(6);
    hill.SetFillCenterOffsetY(-6);
    legend.hill = {Region, "Hill", {hill}};
    legend.terraces = {
        Region, "Quarry", {Gradient(4, KELDRGB(132, 116, 104), KELDRGB(226, 214, 196), 20, KELDRGB(112, 98, 84))}};
    legend.vineyard = {
        Region,
        "Vineyard",
        {Fill(KELDRGB(150, 86, 130), KELDRGB(240, 226, 232), FillStyle::Diagonal, KELDRGB(150, 86, 130), 0.2)}};
    QzStyle marsh = Fill(water, KELDRGB(255, 255, 255), FillStyle::Horizontal, water, 0);
    marsh.SetFillBackOpaque(0);
    legend.marsh = {Region, "Marsh", {marsh}};
    legend.orchard = {
        Region,
        "Orchard",
        {Fill(KELDRGB(86, 142, 74), KELDRGB(222, 235, 196), FillStyle::Dots, KELDRGB(128, 168, 104), 0.2)}};
    QzStyle reserve = Fill(KELDRGB(40, 150, 90), 0, FillStyle::Solid, KELDRGB(24, 110, 64), 0.7);
    reserve.SetLineStyle(LineStyle::Dashed);
    reserve.SetFillOpaqueRate(28);
    legend.reserve = {Region, "Reserve, 28 %", {reserve}};
    legend.town = {Region, "Town", {Fill(KELDRGB(236, 216, 200), 0, FillStyle::Solid, KELDRGB(202, 170, 148), 0.3)}};
    legend.solid = {Region, "Hall: faces", {Building(KELDRGB(216, 138, 98), FILL_FACE, 7)}};
    legend.frame = {Region, "Site: edges", {Building(KELDRGB(216, 138, 98), FILL_LINE, 10)}};
    legend.both = {Region, "Tower: both", {Building(KELDRGB(232, 178, 120), FILL_FACEANDLINE, 14)}};

    legend.motorway = {Line, "Motorway", Cased(KELDRGB(240, 140, 74), KELDRGB(150, 72, 30), 1.9)};
    legend.road = {Line, "Main road", Cased(KELDRGB(255, 216, 112), KELDRGB(156, 118, 44), 1.2)};
    legend.lane = {Line, "Lane", Cased(KELDRGB(255, 255, 255), KELDRGB(128, 122, 108), 0.7)};
    legend.track = {Line, "Footpath", {Stroke(KELDRGB(122, 72, 40), 0.4, LineStyle::Dashed)}};
    legend.railway = {
        Line, "Railway", {With(Stroke(KELDRGB(52, 52, 58), 0.5), &QzStyle::SetLineSymbolStyle, CrossTies)}};
    legend.river = {Line, "River", {Stroke(water, 1.8), Stroke(KELDRGB(104, 172, 212), 1.4)}};
    legend.ferry = {Line, "Ferry", {Stroke(KELDRGB(28, 84, 130), 0.5, LineStyle::Dotted)}};

    legend.village = {Point, "Village", {Marker(MarkerStyle::Ring, KELDRGB(60, 50, 46), 2.6, 2.6)}};
    legend.lighthouse = {Point, "Lighthouse", {Marker(MarkerStyle::Lighthouse, KELDRGB(192, 40, 44), 6, 6.4)}};
    legend.turbine = {Point, "Wind turbine", {Marker(MarkerStyle::Turbine, KELDRGB(44, 74, 120), 5.2, 7)}};
    QzStyle planned = Marker(MarkerStyle::Turbine, KELDRGB(44, 74, 120), 5.2, 7);
    planned.SetFillOpaqueRate(40);
    legend.planned = {Point, "Planned, 40 %", {planned}};
    legend.church = {Point, "Church", {Marker(MarkerStyle::Church, KELDRGB(70, 50, 44), 4.6, 5.4)}};
    legend.station = {Point, "Station", {Marker(MarkerStyle::Station, KELDRGB(28, 84, 130), 4.2, 5)}};
    legend.peak = {Point, "Peak", {Marker(MarkerStyle::Peak, KELDRGB(104, 68, 40), 4.6, 4.4)}};
    legend.tent = {Point, "Camp site", {Marker(MarkerStyle::Tent, KELDRGB(30, 110, 66), 5, 4.6)}};
    legend.view = {Point, "View, at 60", {Marker(MarkerStyle::View, KELDRGB(178, 60, 96), 5, 5, 60)}};
    legend.harbour = {
        Point,
        "Harbour",
        {With(Marker(MarkerStyle::Ring, KELDRGB(28, 84, 130), 5, 5), &QzStyle::SetMarkSymbolStyle, Anchor)}};
    return legend;
}
