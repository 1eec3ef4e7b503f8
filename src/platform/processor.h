#pragma once

namespace Platform {

/// The number of processors that this process may run on, at least 1.
int ProcessorCount();

} // namespace Platform
