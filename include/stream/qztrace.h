#pragma once

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "stream/mostreamexport.h"

namespace Qzc {

/// Receives each trace text as it stands, without a line break of its own.
using QzTraceHandler = void (*)(const char* text);

/// Sends a text, formatted as printf does, to the trace output. Any thread.
MOSTREAM_API void qztrace(const char* format, ...) KELD_PRINTF(1, 2);

/// Replaces the trace output, which is standard error, a line for each text, and returns the one before; null restores
/// the default. The handler may be called from any thread, and from several at once.
MOSTREAM_API QzTraceHandler SetTraceHandler(QzTraceHandler handler);

} // namespace Qzc
