#pragma once

#include <cstdint>

#include "base/keldcolor.h"
#include "base/namespaces.h"

namespace KELD {

/// The scalar fields of a drawing style as a plain record, for code that draws without the toolkit: QzStyle
/// converts from and to it. Sizes, widths and angles are whole tenths; the defaults are those of a QzStyle.
struct KeldStyle {
    bool bFixedColor = false; ///< draw with the fixed colour instead of the style's own
    std::uint32_t nFixedColor = KELDRGB(255, 255, 255);
    std::int32_t nMarkerStyle = 0; ///< symbol identifier, as nLineStyle and nFillStyle
    std::int32_t nMarkerAngle = 0;
    std::int32_t nMarkerSize = 24;
    std::int32_t nMarkerWidth = 24;
    std::int32_t nMarkerHeight = 24;
    std::int32_t nLineStyle = 0;
    std::uint32_t nLineColor = KELDRGB(0, 0, 0); ///< also the marker's colour
    std::int32_t nLineWidth = 1;
    std::int32_t nFillStyle = 0;
    std::uint32_t nFillBackColor = KELDRGB(255, 255, 255);
    std::uint32_t nFillForeColor = KELDRGB(189, 235, 255);
    bool bFillBackOpaque = true;
    std::uint8_t nFillOpaqueRate = 100; ///< percent
    std::uint8_t nFillGradientType = 0;
    std::int16_t nFillAngle = 0;
    std::int16_t nFillCenterOffsetX = 0; ///< not in tenths, as nFillCenterOffsetY
    std::int16_t nFillCenterOffsetY = 0;
    bool bScaleBySymbol = false;
};

} // namespace KELD
