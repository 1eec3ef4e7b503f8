#pragma once

#include <vector>

#include "svgdrawing.h"
#include "toolkit/qzstyle.h"

/// What the map shows, and the styles that it is drawn with.

enum Kind { Point = 0, Line = 1, Region = 2 };

/// A line of the legend. Casings come first: they are drawn below all that they may cross.
struct Entry {
    Kind kind;
    const char* name;
    std::vector<Qzc::QzStyle> styles;
};

struct Legend {
    Entry meadow, forest, lake, hill, terraces, vineyard, marsh, orchard, reserve, town;
    Entry motorway, road, lane, track, railway, river, ferry;
    Entry village, lighthouse, turbine, planned, church, station, peak, tent, view, harbour;
    Entry solid, frame, both; ///< buildings

    std::vector<const Entry*> All() const;
};

Legend MakeLegend();
