#pragma once

#include <cstdint>

/// Sleeping on a 32-bit word of memory, the one thing that the locks of this library ask of the system. A
/// lock is an atomic word that is changed without the system's help for as long as nobody has to wait.
///
/// The word may be the 32 bits of a std::atomic<std::uint32_t>. Waking looks at the address alone and never
/// reads the word: a lock may be destroyed by the thread that got it while the one that gave it up still
/// wakes.
namespace Platform {

constexpr std::int64_t NoTimeout = -1;

/// Sleeps for as long as the word holds `expected`, until a wake or the timeout in microseconds (NoTimeout:
/// none). It may return without any reason, so callers look at the word again. False only when the time is
/// up.
bool WaitOnWord(const void* word, std::uint32_t expected, std::int64_t microseconds = NoTimeout);

void WakeOneWaiter(const void* word);
void WakeAllWaiters(const void* word);

/// Sends on a wake that the calling thread got and, ended by force, will not act upon. For that moment alone.
void PassOnWake();

/// Tells the processor that the thread is spinning.
inline void PauseSpinning() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

/// How often a lock is looked at again before its thread goes to sleep: enough for a holder that is just
/// letting go. More makes things worse where the holder waits for this very processor.
constexpr int SpinCount = 10;

} // namespace Platform
