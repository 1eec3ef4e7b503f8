#pragma once

#include <cstddef>

#include "platform/export.h"

namespace Platform {

/// A block of memory whose address is a multiple of `alignment`, a power of two; null when there is none. FreeBlock
/// gives it back without being told the alignment. Any thread.
MOPLATFORM_API void* AllocateBlock(std::size_t size, std::size_t alignment = alignof(std::max_align_t));
MOPLATFORM_API void FreeBlock(void* block); ///< null is allowed

} // namespace Platform
