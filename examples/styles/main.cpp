// Makes the drawing styles of a map, takes each through all of its forms, prints their sizes as a table, and draws
// the map with its legend as an SVG file:
//     styles [FILE.svg]

#include <algorithm>
#include <cstdio>
#include <string>

#include "forms.h"
#include "mapstyles.h"
#include "stream/qzfile.h"
#include "svgdrawing.h"

using namespace Qzc;

namespace {

constexpr int Width = 984;
constexpr int Height = 668;

// ---- The map

struct Area {
    const Entry* entry;
    const char* path;
    SvgDrawing::Box box;
};

struct Way {
    const Entry* entry;
    const char* path;
};

struct Place {
    const Entry* entry;
    double x, y;
};

void DrawAreas(SvgDrawing& svg, const Legend& legend) {
    const Area areas[] = {
        {&legend.meadow, "M0 0H660V636H0z", {0, 0, 660, 636}},
        {&legend.forest,
         "M-4 66C30 20 118 14 168 44c52 30 70 82 34 120-24 26-60 22-88 44-34 26-74 30-118 22z",
         {0, 24, 222, 208}},
        {&legend.hill,
         "M300 42c40-26 104-22 130 12 24 34 10 80-30 100-42 20-100 14-124-16-24-32-14-72 24-96z",
         {266, 26, 174, 138}},
        {&legend.vineyard, "M486 318l86-26 52 30-14 72-104 22-34-46z", {472, 292, 152, 124}},
        {&legend.orchard, "M520 470l70-18 44 30-12 56-84 10-36-34z", {502, 452, 132, 96}},
        {&legend.terraces, "M556 118l58-14 26 40-20 48-56 8-30-40z", {534, 104, 106, 96}},
        {&legend.town,
         "M352 316c26-26 92-26 112 0 16 22 14 70-10 90-30 24-92 22-110-4-16-24-14-64 8-86z",
         {336, 296, 138, 128}},
    };
    const Area water[] = {
        {&legend.marsh,
         "M196 388c30-20 70-22 94-6 16 14 10 42-14 52-32 12-78 4-90-16-6-12-2-22 10-30z",
         {186, 370, 110, 70}},
        {&legend.lake,
         "M-4 428c40-34 106-40 160-14 40 20 56 46 104 50 46 4 84 30 86 76 2 40-22 70-36 100H-4z",
         {-4, 400, 350, 240}},
        {&legend.reserve,
         "M168 468c24-26 84-36 118-16 40 16 66 40 66 84 0 40-20 60-58 58-54-2-110-22-126-60-8-26-10-50 0-66z",
         {160, 440, 192, 156}},
    };
    for (const Area& area : areas)
        svg.Region(area.entry->styles[0], area.path, area.box);
    const char* const river =
        "M664 44C600 40 560 70 520 84c-60 22-70 60-62 100 10 44-30 66-74 78-56 16-96 50-104 100-6 "
        "34-24 60-40 104";
    for (const QzStyle& style : legend.river.styles)
        svg.Line(style, river);
    for (const Area& area : water)
        svg.Region(area.entry->styles[0], area.path, area.box);
}

void DrawWays(SvgDrawing& svg, const Legend& legend) {
    const Way ways[] = {
        {&legend.track, "M404 304C396 250 330 220 322 180c-6-26 6-54 34-84"},
        {&legend.track, "M404 416c-10 60 6 100-20 150-10 20-8 40-8 66"},
        {&legend.ferry, "M92 452C140 500 220 500 324 590"},
        {&legend.lane, "M404 360L486 366 548 352 608 300 588 196"},
        {&legend.lane, "M404 308V412M452 462L540 512 604 500"},
        {&legend.lane, "M124 337C110 360 84 380 70 400"},
        {&legend.road,
         "M236-4C244 60 250 120 244 170c-6 60 60 110 160 190M404 360c40 60 40 90 60 130 24 50 90 70 200 84"},
        {&legend.railway, "M-4 262C90 258 190 300 300 322c120 24 240-70 364-80"},
        {&legend.motorway, "M-4 338C120 320 250 360 330 420c60 46 130 30 190 22 60-8 100-26 144-20"},
    };
    // Casings below, so that ways run into each other where they meet.
    for (const Way& way : ways) {
        if (way.entry->styles.size() > 1)
            svg.Line(way.entry->styles[0], way.path);
    }
    for (const Way& way : ways)
        svg.Line(way.entry->styles.back(), way.path);
}

void DrawPlaces(SvgDrawing& svg, const Legend& legend) {
    svg.Block(legend.solid.styles[0], 346, 374, 24, 12);
    svg.Block(legend.frame.styles[0], 434, 350, 14, 10);
    svg.Block(legend.both.styles[0], 442, 402, 14, 10);
    svg.Block(legend.both.styles[0], 374, 408, 12, 8);
    const Place places[] = {
        {&legend.peak, 352, 88},       {&legend.view, 300, 62},     {&legend.church, 420, 334},
        {&legend.station, 344, 326},   {&legend.village, 244, 170}, {&legend.village, 604, 500},
        {&legend.lighthouse, 84, 424}, {&legend.harbour, 326, 592}, {&legend.tent, 70, 378},
        {&legend.turbine, 500, 230},   {&legend.turbine, 528, 250}, {&legend.planned, 472, 244},
    };
    for (const Place& place : places)
        svg.Marker(place.entry->styles[0], place.x, place.y);
}

void DrawLabels(SvgDrawing& svg) {
    const char* const land = "font-size='12' fill='#3a332c' text-anchor='middle' stroke='#fffdf6' stroke-width='3' "
                             "stroke-linejoin='round' paint-order='stroke'";
    const char* const town = "font-size='17' font-weight='bold' fill='#2a221c' text-anchor='middle' stroke='#fffdf6' "
                             "stroke-width='4' stroke-linejoin='round' paint-order='stroke'";
    const char* const water = "font-size='21' font-style='italic' font-family='Georgia, DejaVu Serif, serif' "
                              "fill='#1c5684' letter-spacing='2' stroke='#d8eef8' stroke-width='3' "
                              "stroke-linejoin='round' paint-order='stroke'";
    const char* const stream = "font-size='13' font-style='italic' font-family='Georgia, DejaVu Serif, serif' "
                               "fill='#1c5684' stroke='#fffdf6' stroke-width='3' paint-order='stroke'";
    const char* const wood = "font-size='15' font-style='italic' font-family='Georgia, DejaVu Serif, serif' "
                             "fill='#1e4a2c' text-anchor='middle' letter-spacing='1' stroke='#c8e0b4' stroke-width='3' "
                             "stroke-linejoin='round' paint-order='stroke'";
    svg.Text(52, 560, "Silver Lake", water);
    svg.Text(556, 40, "Otter", stream);
    svg.Text(100, 130, "Kingswood", wood);
    svg.Text(354, 462, "Millbrook", town);
    svg.Text(352, 116, "High Tor 812", land);
    svg.Text(272, 190, "Ashby", land);
    svg.Text(604, 524, "Lower Orchard", land);
    svg.Text(590, 96, "R & S quarry <1902>", land);
    svg.Text(252, 556, "Reed Bay",
             "font-size='13' font-style='italic' fill='#0f5a34' text-anchor='middle' "
             "stroke='#d8eef8' stroke-width='3' stroke-linejoin='round' paint-order='stroke'");
    svg.Text(122, 414, "Old Light", land);
}

void DrawScale(SvgDrawing& svg) {
    svg.AddMarkup("<g transform='translate(516 600)'><path d='M-14-20H132V24H-14z' fill='#fffdf6' fill-opacity='.85'/>"
                  "<path d='M0 0h100v6H0z' fill='#fff' stroke='#2a221c'/><path d='M0 0h25v6H0zM50 0h25v6H50z' "
                  "fill='#2a221c'/></g>\n"
                  "<path d='M486 18l9 30-9-6-9 6z' fill='#2a221c' stroke='#fffdf6' stroke-width='2' "
                  "paint-order='stroke'/>\n");
    const char* const small = "font-size='10' fill='#2a221c' text-anchor='middle'";
    svg.Text(516, 595, "0", small);
    svg.Text(566, 595, "1", small);
    svg.Text(621, 595, "2 km", small);
    svg.Text(486, 62, "N",
             "font-size='13' font-weight='bold' fill='#2a221c' text-anchor='middle' stroke='#fffdf6' "
             "stroke-width='3' paint-order='stroke'");
}

// ---- The legend

void DrawSample(SvgDrawing& svg, const Entry& entry, double x, double y) {
    constexpr double SampleWidth = 44;
    constexpr double SampleHeight = 15;
    const bool isBuilding = entry.styles[0].GetExtendHeight() > 0;
    for (const QzStyle& style : entry.styles) {
        if (entry.kind == Point)
            svg.Marker(style, x + SampleWidth / 2, y, 0.72);
        else if (entry.kind == Line)
            svg.Line(style, "M" + std::to_string(static_cast<int>(x)) + ' ' + std::to_string(static_cast<int>(y) + 3) +
                                "q11-10 22-3t22-3");
        else if (isBuilding)
            svg.Block(style, x + 14, y + 11, 12, 8);
        else
            svg.Region(style,
                       "M" + std::to_string(static_cast<int>(x)) + ' ' + std::to_string(static_cast<int>(y) - 7) +
                           "h44v15h-44z",
                       {x, y - SampleHeight / 2, SampleWidth, SampleHeight});
    }
}

void DrawLegend(SvgDrawing& svg, const Legend& legend) {
    constexpr double Left = 702;
    constexpr double Column = 136;
    constexpr double Row = 36;
    svg.Text(Left, 50, "Silver Lake",
             "font-size='26' font-weight='bold' fill='#2a221c' font-family='Georgia, DejaVu "
             "Serif, serif'");
    svg.Text(Left, 72, "every line, fill and marker is a QzStyle", "font-size='11.5' fill='#6b5f52'");
    const std::vector<const Entry*> entries = legend.All();
    const std::size_t rows = std::max<std::size_t>((entries.size() + 1) / 2, 1);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const double x = Left + (i < rows ? 0 : Column);
        const double y = 104 + static_cast<double>(i % rows) * Row;
        DrawSample(svg, *entries[i], x, y);
        svg.Text(x + 52, y + 4, entries[i]->name, "font-size='11' fill='#2a221c'");
    }
}

std::string Draw(const Legend& legend) {
    SvgDrawing svg;
    svg.AddDefinition("<clipPath id='map'><rect width='660' height='636' rx='6'/></clipPath>\n");
    // A sheet of paper of its own, so that it looks the same on light and on dark pages.
    svg.AddMarkup("<rect x='.5' y='.5' width='983' height='667' rx='12' fill='#fbf7ec' stroke='#cbbfa6'/>\n");
    svg.OpenGroup("transform='translate(16 16)'");
    svg.OpenGroup("clip-path='url(#map)'");
    DrawAreas(svg, legend);
    DrawWays(svg, legend);
    DrawPlaces(svg, legend);
    DrawLabels(svg);
    DrawScale(svg);
    svg.CloseGroup();
    svg.AddMarkup("<rect width='660' height='636' rx='6' fill='none' stroke='#8f8268'/>\n");
    svg.CloseGroup();
    DrawLegend(svg, legend);
    return svg.Document(Width, Height);
}

} // namespace

int main(int argc, char** argv) {
    if (argc > 2) {
        std::fprintf(stderr, "usage: styles [FILE.svg]\n");
        return 2;
    }
    const Legend legend = MakeLegend();
    std::printf("The map's styles, with the bytes of each of their forms, written and read back:\n\n");
    if (!PrintForms(legend)) {
        std::fprintf(stderr, "styles: a form did not give its style back\n");
        return 1;
    }
    PrintExports(legend.forest);
    if (argc == 2) {
        KeldMBString error;
        if (!QzFile::ReplaceAll(argv[1], KeldMBString(Draw(legend)), error)) {
            std::fprintf(stderr, "styles: %s: %s\n", argv[1], error.Cstr());
            return 1;
        }
        std::printf("\n%s shows the map.\n", argv[1]);
    }
    return 0;
}
