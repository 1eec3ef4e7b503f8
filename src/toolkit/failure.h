#pragma once

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// Tells of an error that its caller cannot be told of otherwise, such as a document that could not be opened. `source`
/// and `line` say where in the library. Any thread; returns when it is recorded or cannot be.
///
/// The rooms below the log call this; the log defines it.
void RecordFailure(int code, const KeldMBString& message, const char* source, int line);

} // namespace Qzc
