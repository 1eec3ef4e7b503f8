#pragma once

#include "platform/export.h"

namespace Platform {

/// The number of processors that this process may run on, at least 1.
MOPLATFORM_API int ProcessorCount();

} // namespace Platform
