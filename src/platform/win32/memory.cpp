#include "platform/memory.h"

#include <cstdint>
#include <cstdlib>

namespace Platform {

namespace {

// In front of every block, so that one function gives back blocks of every alignment.
struct Header {
    void* block;
};

} // namespace

void* AllocateBlock(std::size_t size, std::size_t alignment) {
    if (alignment < alignof(std::max_align_t))
        alignment = alignof(std::max_align_t);
    const std::size_t extra = alignment + sizeof(Header);
    if (size > SIZE_MAX - extra)
        return nullptr;
    void* const block = std::malloc(size + extra);
    if (block == nullptr)
        return nullptr;
    const auto start = reinterpret_cast<std::uintptr_t>(block) + sizeof(Header);
    const std::uintptr_t aligned = (start + alignment - 1) / alignment * alignment;
    reinterpret_cast<Header*>(aligned)[-1].block = block;
    return reinterpret_cast<void*>(aligned);
}

void FreeBlock(void* block) {
    if (block != nullptr)
        std::free(static_cast<Header*>(block)[-1].block);
}

} // namespace Platform
