#include "toolkit/concurrency/taskmemory.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

#include "platform/memory.h"
#include "platform/sanitizer.h"
#include "platform/threadlocal.h"
#include "platform/threadslot.h"

namespace Qzc::TaskMemory {

namespace {

constexpr std::size_t ChunkSize = 4096;
constexpr std::size_t LargestTask = 256; // those beyond it, and aligned ones, come from the allocator
// As a plain new aligns, which is more than malloc does on some systems.
constexpr std::size_t Unit = std::max<std::size_t>(alignof(std::max_align_t), __STDCPP_DEFAULT_NEW_ALIGNMENT__);

// AddressSanitizer finds the uses of memory that was given back.
constexpr bool HasChunks = UNDER_ADDRESS_SANITIZER == 0;

struct Chunk {
    static constexpr std::uint32_t Open = 1U << 30; ///< more than there are tasks in a chunk

    /// The tasks that have not come back. As long as a thread cuts tasks from it, the number is Open less what came.
    std::atomic<std::uint32_t> left{Open};

    char* Begin() { return reinterpret_cast<char*>(this) + Unit; }
    char* End() { return reinterpret_cast<char*>(this) + ChunkSize; }
};
static_assert(sizeof(Chunk) <= Unit);

/// What stands in front of each task.
struct alignas(Unit) Header {
    Chunk* chunk;    ///< null where the allocator gave the memory
    void* allocated; ///< then what it gets back
};

/// Empty chunks, each in a place of its own, for which one exchange is enough: nothing is locked when the process forks
/// or a thread is ended here.
std::array<std::atomic<Chunk*>, 16> s_empty{};

/// A thread's own, zeros at first. One that is ended by force leaves both chunks to nobody.
struct Cache {
    Chunk* chunk; ///< from which it cuts
    char* at;
    std::uint32_t taken;
    std::uint32_t returned; ///< so many that `returnedTo` does not know of
    Chunk* returnedTo;
    enum : unsigned char { New, InUse, Closed } state;
};

void Return(Chunk* chunk, std::uint32_t count) {
    if (chunk->left.fetch_sub(count, std::memory_order_acq_rel) != count)
        return;
    for (std::atomic<Chunk*>& place : s_empty) {
        Chunk* none = nullptr;
        if (place.load(std::memory_order_relaxed) == nullptr &&
            place.compare_exchange_strong(none, chunk, std::memory_order_release, std::memory_order_relaxed))
            return;
    }
    Platform::FreeBlock(chunk);
}

void LeaveChunk(Cache& cache) {
    if (cache.chunk != nullptr)
        Return(std::exchange(cache.chunk, nullptr), Chunk::Open - cache.taken);
}

void ReturnAll(Cache& cache) {
    if (cache.returnedTo != nullptr)
        Return(std::exchange(cache.returnedTo, nullptr), cache.returned);
}

Platform::ThreadSlot s_atEnd([](void* pointer) {
    auto& cache = *static_cast<Cache*>(pointer);
    cache.state = Cache::Closed;
    LeaveChunk(cache);
    ReturnAll(cache);
    if constexpr (!Platform::HasThreadLocal)
        std::free(pointer);
});

/// Null without memory.
Cache* OfThread() {
    if constexpr (Platform::HasThreadLocal) {
        static thread_local Cache t_cache [[gnu::tls_model("initial-exec")]] = {};
        return &t_cache;
    }
    auto* cache = static_cast<Cache*>(s_atEnd.Get());
    if (cache != nullptr)
        return cache;
    cache = static_cast<Cache*>(std::calloc(1, sizeof(Cache)));
    if (cache != nullptr && !s_atEnd.Set(cache)) {
        std::free(cache);
        cache = nullptr;
    }
    return cache;
}

bool IsInUse(Cache& cache) {
    if (cache.state == Cache::New)
        cache.state = s_atEnd.Set(&cache) ? Cache::InUse : Cache::Closed;
    return cache.state == Cache::InUse;
}

bool EnterChunk(Cache& cache) {
    LeaveChunk(cache);
    if (!HasChunks || !IsInUse(cache))
        return false;
    void* memory = nullptr;
    for (auto place = s_empty.begin(); memory == nullptr && place != s_empty.end(); ++place) {
        if (place->load(std::memory_order_relaxed) != nullptr)
            memory = place->exchange(nullptr, std::memory_order_acquire);
    }
    if (memory == nullptr)
        memory = Platform::AllocateBlock(ChunkSize, Unit);
    if (memory == nullptr)
        return false;
    cache.chunk = new (memory) Chunk;
    cache.at = cache.chunk->Begin();
    cache.taken = 0;
    return true;
}

void* Allocate(std::size_t size, std::size_t alignment) {
    // The header lies in the room that the alignment asks for in front of the task.
    const std::size_t room = std::max(alignment, sizeof(Header));
    if (alignment > SIZE_MAX / 4 || size > SIZE_MAX / 4)
        return nullptr;
    void* const allocated = Platform::AllocateBlock(room + size, alignment);
    return allocated != nullptr
               ? new (static_cast<char*>(allocated) + room - sizeof(Header)) Header{nullptr, allocated} + 1
               : nullptr;
}

} // namespace

void* Take(std::size_t size, std::size_t alignment) noexcept {
    alignment = std::max(alignment, Unit);
    if (alignment != Unit || size > LargestTask)
        return Allocate(size, alignment);
    Cache* const cache = OfThread();
    const std::size_t whole = sizeof(Header) + (size + Unit - 1) / Unit * Unit;
    if (cache == nullptr ||
        ((cache->chunk == nullptr || whole > static_cast<std::size_t>(cache->chunk->End() - cache->at)) &&
         !EnterChunk(*cache)))
        return Allocate(size, alignment);
    ++cache->taken;
    return new (std::exchange(cache->at, cache->at + whole)) Header{cache->chunk, nullptr} + 1;
}

void GiveBack(void* memory) noexcept {
    if (memory == nullptr)
        return;
    const Header header = static_cast<Header*>(memory)[-1];
    Cache* const cache = OfThread();
    if (header.chunk == nullptr) {
        Platform::FreeBlock(header.allocated);
    } else if (cache == nullptr) {
        Return(header.chunk, 1);
    } else if (header.chunk == cache->returnedTo) {
        ++cache->returned;
    } else {
        ReturnAll(*cache);
        cache->returnedTo = header.chunk;
        cache->returned = 1;
        if (!IsInUse(*cache))
            ReturnAll(*cache);
    }
}

} // namespace Qzc::TaskMemory
