#include "platform/memory.h"

#include <cstdint>
#include <cstdlib>

namespace Platform {

void* AllocateBlock(std::size_t size, std::size_t alignment) {
    if (alignment <= alignof(std::max_align_t))
        return std::malloc(size);
    if (size > SIZE_MAX - alignment)
        return nullptr;
    return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment); // it wants a multiple
}

void FreeBlock(void* block) {
    std::free(block);
}

} // namespace Platform
