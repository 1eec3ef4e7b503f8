#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>

#include "toolkit/qzmarkup.h"

namespace Qzc {

/// Adding attributes to one element by the thousand would look through all of them for each: their names are
/// kept from one call to the next, as long as nothing else changes the text.
struct QzMarkup::AttributeNames {
    int iPos = 0;
    std::uint64_t nChanges = 0; ///< those of the text when the names were complete
    std::unordered_set<std::string> names;
};

} // namespace Qzc
