#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "platform/export.h"

/// Sleeping on a 32-bit word of memory, the one thing that the locks of this library ask of the system. A
/// lock is an atomic word that is changed without the system's help for as long as nobody has to wait.
///
/// The word may be the 32 bits of a std::atomic<std::uint32_t>. Waking looks at the address alone and never
/// reads the word: a lock may be destroyed by the thread that got it while the one that gave it up still
/// wakes.
namespace Platform {

constexpr std::int64_t NoTimeout = -1;

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
constexpr bool IsBigEndian = true;
#else
constexpr bool IsBigEndian = false;
#endif

/// Sleeps for as long as the word holds `expected`, until a wake or the timeout in microseconds (NoTimeout:
/// none). It may return without any reason, so callers look at the word again. False only when the time is
/// up.
MOPLATFORM_API bool WaitOnWord(const void* word, std::uint32_t expected, std::int64_t microseconds = NoTimeout);

/// The end of a wait that may take several sleeps.
class WaitLimit {
public:
    explicit WaitLimit(std::int64_t microseconds) : m_none(microseconds < 0) {
        if (!m_none)
            m_limit = Clock::now() + std::chrono::microseconds(microseconds);
    }
    /// The microseconds that are left, rounded up; NoTimeout where there is no end.
    std::int64_t Left() const {
        if (m_none)
            return NoTimeout;
        const auto left = std::chrono::ceil<std::chrono::microseconds>(m_limit - Clock::now()).count();
        return left > 0 ? left : 0;
    }
    std::int64_t Left(std::int64_t atMost) const {
        const std::int64_t left = Left();
        return left == NoTimeout || left > atMost ? atMost : left;
    }

private:
    using Clock = std::chrono::steady_clock;

    bool m_none;
    Clock::time_point m_limit;
};

MOPLATFORM_API void WakeOneWaiter(const void* word);
MOPLATFORM_API void WakeAllWaiters(const void* word);

/// What is done in place of a thread that is ended by force while this lives, at the spot where it was stopped: `act`
/// may change atomic words and wake, no more. For a waiter that others would go on reckoning with. One at a time.
class MOPLATFORM_API LastAct {
public:
    LastAct(void (*act)(void* object), void* object);
    ~LastAct();
    LastAct(const LastAct&) = delete;
    LastAct& operator=(const LastAct&) = delete;

    void Act() const { m_act(m_object); }

private:
    void (*m_act)(void*);
    void* m_object;
};

/// For a thread that is being ended by force, in that moment: does its last act, and sends on a wake that it got and
/// will not act upon.
MOPLATFORM_API void AbandonWait();

/// The upper half of a word of 64 bits, as a word to sleep on.
inline const void* UpperHalf(const std::atomic<std::uint64_t>& word) {
    return reinterpret_cast<const std::uint32_t*>(&word) + (IsBigEndian ? 0 : 1);
}

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

/// The same for looks that get rarer: the longest stretch between two of them.
constexpr int MostPauses = 32;

} // namespace Platform
