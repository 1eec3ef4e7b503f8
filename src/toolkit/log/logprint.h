#pragma once

#include <cstdarg>

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// What vprintf prints, with a decimal point whatever the locale (unless long double or hexadecimal). Several times as
/// fast, most of all with floating-point numbers, which is why it is here. Empty for what cannot be formatted.
KeldMBString LogPrint(const char* format, std::va_list arguments);

} // namespace Qzc
