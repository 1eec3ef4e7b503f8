#pragma once

#include "base/mobaseexport.h"
#include "base/namespaces.h"

namespace KELD {

/// Receives every failed assertion: the expression's text, the source file and the line.
using KeldAssertHandler = void (*)(const char* expression, const char* file, int line);

/// Replaces the process's assertion handler and returns the one before; null restores the default, which
/// prints one line to standard error. The handler may be called from any thread, and from several at once.
MOBASE_API KeldAssertHandler SetAssertHandler(KeldAssertHandler handler);

/// Calls the handler. Use the macros below instead.
MOBASE_API void ReportAssertion(const char* expression, const char* file, int line);

/// What the macros below call: reports an expression that does not hold, and tells whether it does.
inline bool CheckAssertion(bool holds, const char* expression, const char* file, int line) {
    if (!holds)
        ReportAssertion(expression, file, line);
    return holds;
}

} // namespace KELD

/// States what the caller must keep. Checked in every build type; when it does not hold the handler is told
/// and the program goes on, so the code behind it takes a defined fallback:
///     if (!KELDASSERT(nSize != 0))
///         return;
#define KELDASSERT(expression) ::KELD::CheckAssertion(static_cast<bool>(expression), #expression, __FILE__, __LINE__)

/// The same with a text of its own, where callers rely on that text.
#define KELDASSERT_TEXT(expression, text)                                                                              \
    ::KELD::CheckAssertion(static_cast<bool>(expression), text, __FILE__, __LINE__)
