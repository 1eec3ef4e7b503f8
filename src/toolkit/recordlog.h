#pragma once

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// Reports a failure that its caller's result alone does not tell: level error, with a message code and the
/// source position. It goes to the trace output.
void RecordError(int code, const KeldMBString& message, const char* codeFile, int codeLine);

/// Reports what went on nevertheless, but should be known: level warning.
void RecordWarning(int code, const KeldMBString& message, const char* codeFile, int codeLine);

} // namespace Qzc
