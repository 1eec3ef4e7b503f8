#pragma once

#include "base/keldtime.h"
#include "base/namespaces.h"

namespace Qzc {

/// The time that the log goes by.
KeldTime GetLogTime();

/// Puts a clock in the place of the system's, for tests; null restores it.
void SetLogClock(KeldTime (*clock)());

} // namespace Qzc
