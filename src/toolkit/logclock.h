#pragma once

#include "base/keldtime.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// Puts a clock in the place of the one that the log reads, for tests; null restores it.
MOTOOLKIT_API void SetLogClock(KeldTime (*clock)());

} // namespace Qzc
