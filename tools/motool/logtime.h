#pragma once

#include <string_view>

#include "base/keldtime.h"

namespace Motool {

/// A point in local time as people type it: "2026-11-21", "2026-11-21 09:30", "2026-11-21T09:30:15", "09:30" (today),
/// "now", and "90s", "15m", "2h", "7d" for so long ago. `isEnd`: what it leaves open is the last that fits, not the
/// first, so that a day as an end is the whole day. False when it is none.
bool ParseTime(std::string_view text, KELD::KeldTime now, bool isEnd, KELD::KeldTime& time);

} // namespace Motool
