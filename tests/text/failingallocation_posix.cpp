// The libraries call the program's operator new.

#include <cstdlib>
#include <new>

#include "text/failingallocation.h"

// 0: none.
static thread_local int t_failing = 0;

void FailAllocation(int number) {
    t_failing = number;
}

bool StopFailing() {
    const bool hasFailed = t_failing == 0;
    t_failing = 0;
    return hasFailed;
}

// The other forms come down to these; the one that does not throw, too, but a sanitizer has one of its own.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return t_failing > 0 && --t_failing == 0 ? nullptr : std::malloc(size != 0 ? size : 1);
}
void* operator new(std::size_t size) {
    void* const memory = operator new(size, std::nothrow);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
