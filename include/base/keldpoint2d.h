#pragma once

#include "base/namespaces.h"

namespace KELD {

struct KeldPoint2D {
    double x = 0;
    double y = 0;

    friend bool operator==(const KeldPoint2D& a, const KeldPoint2D& b) { return a.x == b.x && a.y == b.y; }
    friend bool operator!=(const KeldPoint2D& a, const KeldPoint2D& b) { return !(a == b); }
};

} // namespace KELD
