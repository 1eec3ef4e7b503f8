#pragma once

#include <string_view>

namespace Platform {

/// The system's number of a charset that it converts by itself; 0 when it has none. Upper and lower case count alike.
unsigned int CodePageOf(std::string_view name);

/// Whether the system refuses flags and the question about lost characters with this one.
bool TakesNoFlags(unsigned int codePage);

} // namespace Platform
