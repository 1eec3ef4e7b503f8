#pragma once

#include <cstdint>

#include "base/namespaces.h"

namespace Qzc {

// Records keep colours in the order of the platform that first wrote them: red in the low byte. That is the
// order of colour values in memory too, so both directions change nothing; records go through them all the
// same, so that the order in memory is free to change.

/// For a record: the colour of a value in memory.
constexpr std::uint32_t QzCurrentColortoWinColor(std::uint32_t color) {
    return color;
}
/// From a record.
constexpr std::uint32_t QzWinColortoCurrentColor(std::uint32_t color) {
    return color;
}

} // namespace Qzc
