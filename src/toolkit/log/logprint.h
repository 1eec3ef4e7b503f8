#pragma once

#include <cstdarg>

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// What vprintf prints. Formats of plain conversions alone (%s %c %d %i %u %x %ld %lu %lld %llu %zu %f %.2f %%) are
/// printed here, which is faster, and where %f has a decimal point whatever the locale; the C library prints all
/// others. Empty for what cannot be formatted.
KeldMBString LogPrint(const char* format, std::va_list arguments);

} // namespace Qzc
