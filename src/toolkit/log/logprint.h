#pragma once

#include <cstdarg>
#include <string>

#include "base/namespaces.h"

namespace Qzc {

/// What vprintf prints, in the C locale whatever the current one is. Several times as fast, most of all with
/// floating-point numbers, which is why it is here. Empty for what cannot be formatted.
std::string LogPrint(const char* format, std::va_list arguments);

} // namespace Qzc
