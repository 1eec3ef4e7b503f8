#pragma once

#include <cstddef>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "stream/mostreamexport.h"

namespace Qzc {

/// Formats as printf does into `size` bytes at `buffer`: what does not fit is cut off, and the terminator is
/// always there (unless `size` is 0). The number of bytes before it. Any thread.
MOSTREAM_API int Qzsprintf(char* buffer, std::size_t size, const char* format, ...) KELD_PRINTF(3, 4);

} // namespace Qzc
