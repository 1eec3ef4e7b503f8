#include "text/failingmemory.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <thread>

#include "platform/sanitizer.h"

// Where a sanitizer has the C library's allocator, only what goes through operator new can fail.
#if UNDER_ADDRESS_SANITIZER || UNDER_THREAD_SANITIZER || !defined(__GLIBC__)
#define REPLACES_MALLOC 0
#else
#define REPLACES_MALLOC 1
#endif

namespace {

std::atomic<std::thread::id> s_thread; // whose allocations are counted
std::atomic<int> s_countdown{0};       // 1: the next one fails

bool FailsNow() {
    if (s_countdown.load(std::memory_order_relaxed) <= 0 || s_thread.load() != std::this_thread::get_id() ||
        s_countdown.fetch_sub(1) != 1)
        return false;
    errno = ENOMEM; // as the C library does
    return true;
}

} // namespace

void FailAllocation(int number) {
    s_thread = std::this_thread::get_id();
    s_countdown = number;
}

bool StopFailing() {
    return s_countdown.exchange(0) <= 0;
}

#if REPLACES_MALLOC
#define EXPORTED __attribute__((visibility("default")))
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

EXPORTED void* malloc(std::size_t size) {
    return FailsNow() ? nullptr : __libc_malloc(size);
}
EXPORTED void* calloc(std::size_t count, std::size_t size) {
    return FailsNow() ? nullptr : __libc_calloc(count, size);
}
EXPORTED void* realloc(void* memory, std::size_t size) {
    return FailsNow() ? nullptr : __libc_realloc(memory, size);
}
}
#endif

// The other forms come down to these; the one that does not throw, too, but a sanitizer has one of its own.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return !REPLACES_MALLOC && FailsNow() ? nullptr : std::malloc(size != 0 ? size : 1);
}
void* operator new(std::size_t size) {
    void* const memory = operator new(size, std::nothrow);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
