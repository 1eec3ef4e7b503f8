#pragma once

#include "platform/export.h"

namespace Platform {

/// The number that a text starts with, as strtod reads it in the "C" locale, whatever the current one is: infinite when
/// no double holds it, 0 when none is there. Any thread.
MOPLATFORM_API double ReadDecimal(const char* text);

} // namespace Platform
