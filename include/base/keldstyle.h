#pragma once

#include <cstdint>

#include "base/keldcolor.h"
#include "base/namespaces.h"

namespace KELD {

/// The scalar fields of a drawing style as a plain record, for code that draws without the toolkit: QzStyle
/// converts from and to it. Sizes, widths and angles are whole tenths; the defaults are those of a QzStyle.
struct KeldStyle {
    bool bFixedColor = false;                              ///< draw with the fixed colour instead of the style's own
    std::uint32_t nFixedColor = KELDRGB(255, 255, 255);    ///< a KELDRGB value, as all colours
    std::int32_t nMarkerStyle = 0;                         ///< symbol identifier, as nLineStyle and nFillStyle
    std::int32_t nMarkerAngle = 0;                         ///< degrees
    std::int32_t nMarkerSize = 24;                         ///< of the marker as a whole
    std::int32_t nMarkerWidth = 24;                        ///< of the marker alone
    std::int32_t nMarkerHeight = 24;                       ///< likewise
    std::int32_t nLineStyle = 0;                           ///< symbol identifier
    std::uint32_t nLineColor = KELDRGB(0, 0, 0);           ///< also the marker's colour
    std::int32_t nLineWidth = 1;                           ///< of the stroke
    std::int32_t nFillStyle = 0;                           ///< symbol identifier
    std::uint32_t nFillBackColor = KELDRGB(255, 255, 255); ///< behind a pattern
    std::uint32_t nFillForeColor = KELDRGB(189, 235, 255); ///< of the pattern, or of the whole
    bool bFillBackOpaque = true;                           ///< whether the back is painted
    std::uint8_t nFillOpaqueRate = 100;                    ///< percent
    std::uint8_t nFillGradientType = 0;                    ///< 0 none, 1 linear, 2 radial, 3 conical, 4 square
    std::int16_t nFillAngle = 0;                           ///< of the gradient, degrees
    std::int16_t nFillCenterOffsetX = 0;                   ///< not in tenths, as nFillCenterOffsetY
    std::int16_t nFillCenterOffsetY = 0;                   ///< likewise
    bool bScaleBySymbol = false;                           ///< see QzStyle::SetScaleBySymbol
};

} // namespace KELD
