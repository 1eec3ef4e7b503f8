#pragma once

#include "base/keldmbstring.h"
#include "base/keldtime.h"
#include "base/namespaces.h"

namespace Qzc {

/// The time that the log goes by.
KeldTime GetLogTime();
/// The same with the milliseconds of the second.
KeldTime GetLogTime(int& milliseconds);

/// Puts a clock in the place of the system's, for tests; null restores it. Its milliseconds are 0.
void SetLogClock(KeldTime (*clock)());

/// Local time or UTC, as strftime writes it; empty when that is longer than 1023 bytes.
KeldMBString FormatLogTime(KeldTime time, const KeldMBString& format, bool utc);

} // namespace Qzc
