#pragma once

#include "platform/win32/system.h"

namespace Platform {

/// Whether a thread that was stopped at this place of its code may hold a lock of the system's or of the run-time
/// library, so that ending it there would leave the process unusable. Allocates nothing.
bool MayHoldSystemLock(const CONTEXT& context);

/// Finds out what that needs, once.
void LocateSystemCode();

} // namespace Platform
