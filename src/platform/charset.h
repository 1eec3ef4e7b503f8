#pragma once

#include <string>
#include <string_view>

#include "platform/export.h"

namespace Platform {

/// The name of the charset that this process's locale uses. When the program has left the locale at "C", that
/// of the locale which the environment asks for. Empty when there is none beside "C". Not safe beside a
/// thread that changes the locale.
MOPLATFORM_API std::string LocaleCharsetName();

/// The charset that paths are in from now on, for a system that has characters in its paths. Where they are bytes this
/// does nothing.
MOPLATFORM_API void SetPathCharset(std::string_view name);

} // namespace Platform
