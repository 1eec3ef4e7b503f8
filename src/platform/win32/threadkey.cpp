#include "platform/threadkey.h"

#include "platform/win32/system.h"

namespace Platform {

namespace {

DWORD Place() {
    static const DWORD s_place = TlsAlloc();
    return s_place;
}

// Made before any thread can be ended in the middle of it.
const bool s_isMade = Place() != TLS_OUT_OF_INDEXES;

} // namespace

// A place for a pointer is read in a few instructions.
std::uint64_t SystemThreadKey() {
    static std::atomic<std::uintptr_t> s_last{0};
    auto number = reinterpret_cast<std::uintptr_t>(TlsGetValue(Place()));
    if (number == 0) {
        number = s_last.fetch_add(1, std::memory_order_relaxed) + 1;
        // Without a place the id alone stands for the thread.
        if (TlsSetValue(Place(), reinterpret_cast<void*>(number)) == 0)
            number = 0;
    }
    // With the thread's id beside it, for numbers of 32 bits come again one day.
    if constexpr (sizeof(number) < sizeof(std::uint64_t))
        return std::uint64_t{GetCurrentThreadId()} << 32 | number;
    return number != 0 ? number : std::uint64_t{GetCurrentThreadId()} << 32;
}

} // namespace Platform
