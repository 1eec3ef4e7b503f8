#pragma once

#include "base/namespaces.h"

namespace KELD {

/// A place in the plane; its unit is that of whoever uses it.
struct KeldPoint2D {
    double x = 0; ///< to the right
    double y = 0; ///< upward

    friend bool operator==(const KeldPoint2D& a, const KeldPoint2D& b) { return a.x == b.x && a.y == b.y; }
    friend bool operator!=(const KeldPoint2D& a, const KeldPoint2D& b) { return !(a == b); }
};

} // namespace KELD
