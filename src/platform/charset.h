#pragma once

#include <string>

namespace Platform {

/// The name of the charset that this process's locale uses. When the program has left the locale at "C", that
/// of the locale which the environment asks for. Empty when there is none beside "C". Not safe beside a
/// thread that changes the locale.
std::string LocaleCharsetName();

} // namespace Platform
