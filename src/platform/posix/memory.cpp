#include "platform/memory.h"

#include <cstdlib>

namespace Platform {

void* AllocateBlock(std::size_t size, std::size_t alignment) {
    if (alignment <= alignof(std::max_align_t))
        return std::malloc(size);
    // aligned_alloc wants a size that is a multiple, which that of a class always is.
    return std::aligned_alloc(alignment, size);
}

void FreeBlock(void* block) {
    std::free(block);
}

} // namespace Platform
