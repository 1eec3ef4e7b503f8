#pragma once

#include <cstdint>

#include "base/namespaces.h"

namespace Qzc {

/// A colour with transparency, each part from 0 to 1; an alpha of 1 is opaque.
class QzColorValue3D {
public:
    constexpr QzColorValue3D() = default; ///< opaque white
    /// From its parts.
    constexpr QzColorValue3D(double r, double g, double b, double a = 1) : red(r), green(g), blue(b), alpha(a) {}

    /// From a packed value: red in the low byte, then green, blue and alpha. The colours that KELDRGB makes
    /// have no alpha byte, so they come out fully transparent; set `alpha`, or the top byte, where that is not
    /// meant.
    constexpr explicit QzColorValue3D(std::uint32_t value)
        : red(Part(value)), green(Part(value >> 8)), blue(Part(value >> 16)), alpha(Part(value >> 24)) {}

    /// The packed value, each part cut to 0 to 1 and rounded. Gives back what a packed value was made into.
    constexpr std::uint32_t GetValue() const {
        return Byte(red) | Byte(green) << 8 | Byte(blue) << 16 | Byte(alpha) << 24;
    }

    /// A part that is no number is equal to one that is none either.
    friend constexpr bool operator==(const QzColorValue3D& a, const QzColorValue3D& b) {
        return IsSame(a.red, b.red) && IsSame(a.green, b.green) && IsSame(a.blue, b.blue) && IsSame(a.alpha, b.alpha);
    }
    friend constexpr bool operator!=(const QzColorValue3D& a, const QzColorValue3D& b) { return !(a == b); }

    static const QzColorValue3D Black;  ///< opaque
    static const QzColorValue3D White;  ///< opaque
    static const QzColorValue3D Red;    ///< opaque
    static const QzColorValue3D Green;  ///< opaque
    static const QzColorValue3D Blue;   ///< opaque
    static const QzColorValue3D Yellow; ///< opaque

    double red = 1;   ///< from 0 to 1
    double green = 1; ///< from 0 to 1
    double blue = 1;  ///< from 0 to 1
    double alpha = 1; ///< 1 is opaque, 0 is not seen

private:
    static constexpr bool IsSame(double a, double b) { return a == b || (a != a && b != b); }
    static constexpr double Part(std::uint32_t value) { return (value & 0xFF) / 255.0; }
    static constexpr std::uint32_t Byte(double part) {
        // Written so that what is no number counts as 0.
        return !(part > 0) ? 0 : part >= 1 ? 255 : static_cast<std::uint32_t>((part * 510 + 1) / 2);
    }
};

inline constexpr QzColorValue3D QzColorValue3D::Black{0, 0, 0};
inline constexpr QzColorValue3D QzColorValue3D::White{1, 1, 1};
inline constexpr QzColorValue3D QzColorValue3D::Red{1, 0, 0};
inline constexpr QzColorValue3D QzColorValue3D::Green{0, 1, 0};
inline constexpr QzColorValue3D QzColorValue3D::Blue{0, 0, 1};
inline constexpr QzColorValue3D QzColorValue3D::Yellow{1, 1, 0};

} // namespace Qzc
