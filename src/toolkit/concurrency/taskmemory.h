#pragma once

#include <cstddef>

/// Memory for tasks. A task is made by one thread and given back by another one, in about the same order: so small ones
/// are cut from chunks one behind the other, and a chunk comes back as a whole. That spares the work, and most of the
/// misses of the processor's cache, that a general allocator has with it. A task keeps its chunk, of 4 KiB.
namespace Qzc::TaskMemory {

/// Null when memory is short. `alignment`: a power of two.
void* Take(std::size_t size, std::size_t alignment = alignof(std::max_align_t)) noexcept;

/// Any thread; null is allowed. Needs neither size nor alignment.
void GiveBack(void* memory) noexcept;

} // namespace Qzc::TaskMemory
