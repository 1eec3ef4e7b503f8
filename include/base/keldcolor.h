#pragma once

#include <cstdint>

#include "base/namespaces.h"

namespace KELD {

/// A colour value: red in the low byte, then green, then blue; the top byte is 0. Of each part the low 8 bits
/// count.
constexpr std::uint32_t KELDRGB(int red, int green, int blue) {
    return static_cast<std::uint32_t>((red & 0xFF) | (green & 0xFF) << 8 | (blue & 0xFF) << 16);
}

constexpr unsigned char KELDREDVAL(std::uint32_t color) {
    return static_cast<unsigned char>(color);
}
constexpr unsigned char KELDGREENVAL(std::uint32_t color) {
    return static_cast<unsigned char>(color >> 8);
}
constexpr unsigned char KELDBLUEVAL(std::uint32_t color) {
    return static_cast<unsigned char>(color >> 16);
}

} // namespace KELD
