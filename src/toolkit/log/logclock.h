#pragma once

#include "base/keldtime.h"
#include "base/namespaces.h"

namespace Qzc {

/// Puts a clock in the place of the one that the log reads, for tests; null restores it.
void SetLogClock(KeldTime (*clock)());

} // namespace Qzc
