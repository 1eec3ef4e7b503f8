#pragma once

#include <cstdint>

#include "base/namespaces.h"

namespace KELD {

/// A colour value: red in the low byte, then green, then blue; the top byte is 0. Of each part the low 8 bits
/// count.
constexpr std::uint32_t KELDRGB(int red, int green, int blue) {
    return static_cast<std::uint32_t>((red & 0xFF) | (green & 0xFF) << 8 | (blue & 0xFF) << 16);
}

/// The red part of a colour value.
constexpr unsigned char KELDREDVAL(std::uint32_t color) {
    return static_cast<unsigned char>(color);
}
/// The green part.
constexpr unsigned char KELDGREENVAL(std::uint32_t color) {
    return static_cast<unsigned char>(color >> 8);
}
/// The blue part.
constexpr unsigned char KELDBLUEVAL(std::uint32_t color) {
    return static_cast<unsigned char>(color >> 16);
}

} // namespace KELD
