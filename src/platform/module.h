#pragma once

#include <string>

#include "platform/export.h"

namespace Platform {

/// The absolute path of the loaded shared library of this name, given without the system's prefix, suffix and
/// version
/// ("MoBase"). Empty when no such library is loaded. Any thread.
MOPLATFORM_API std::string ModulePath(const char* name);

} // namespace Platform
