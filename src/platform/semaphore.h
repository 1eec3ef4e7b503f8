#pragma once

#include <atomic>
#include <cstdint>

#include "platform/waitword.h"

namespace Platform {

/// A counting semaphore. A post beyond the maximum does nothing.
class Semaphore {
public:
    static constexpr std::uint32_t Maximum = 0x7FFFFFFF;

    explicit Semaphore(std::uint32_t count) : m_state(count) {}

    void Wait() {
        if (!TryWait())
            WaitSlowly(NoTimeout);
    }
    /// False when the time in milliseconds was up.
    bool TimedWait(std::uint32_t milliseconds) {
        return TryWait() || (milliseconds != 0 && WaitSlowly(std::int64_t(milliseconds) * 1000));
    }
    bool TryWait() {
        std::uint64_t state = m_state.load(std::memory_order_relaxed);
        while (Count(state) != 0) {
            if (m_state.compare_exchange_weak(state, state - 1, std::memory_order_acquire, std::memory_order_relaxed))
                return true;
        }
        return false;
    }
    void Post() {
        std::uint64_t state = m_state.load(std::memory_order_relaxed);
        std::uint64_t posted = 0;
        do {
            if (Count(state) == Maximum)
                return;
            posted = state + 1;
            if (state >= OneSleeper)
                posted = NextWake(posted) - OneSleeper;
        } while (!m_state.compare_exchange_weak(state, posted, std::memory_order_release, std::memory_order_relaxed));
        // From here on the semaphore may be gone: what was read with the exchange has to do.
        if (state >= OneSleeper)
            WakeOneWaiter(SleepersWord());
    }

private:
    // In one word, so that a post sees and changes all of it at one moment, from the low bits: the count (32
    // bits), a running number of the wakes (16) and the number of sleepers that nobody has woken yet (16). A
    // post takes the sleeper that it wakes out of the number itself. Those that follow then spare the system
    // call, which matters because it takes a while until the sleeper runs. A thread on its way to sleep sees
    // by the running number whether it was meant. The number of sleepers may be too high, which costs a wake
    // in vain, but never too low.
    static constexpr std::uint64_t OneWake = std::uint64_t(1) << 32;
    static constexpr std::uint64_t OneSleeper = std::uint64_t(1) << 48;
    static constexpr std::uint64_t Wakes = OneSleeper - OneWake;
    static constexpr std::uint64_t MostSleepers = 0xFFFF * OneSleeper;

    static std::uint32_t Count(std::uint64_t state) { return static_cast<std::uint32_t>(state); }
    static std::uint32_t Upper(std::uint64_t state) { return static_cast<std::uint32_t>(state >> 32); }
    static std::uint64_t NextWake(std::uint64_t state) { return (state & ~Wakes) | ((state + OneWake) & Wakes); }

    const void* SleepersWord() const { return UpperHalf(m_state); }

    bool WaitSlowly(std::int64_t microseconds) {
        for (int spin = 0; spin < SpinCount; ++spin) {
            PauseSpinning();
            if (TryWait())
                return true;
        }
        const WaitLimit limit(microseconds);
        std::uint64_t state = m_state.load(std::memory_order_relaxed);
        std::uint64_t counted = 0; // 1 sleeper while this thread is one of them
        std::uint64_t wakes = 0;   // and the running number since when
        for (bool inTime = true;;) {
            if (counted != 0 && (state & Wakes) != wakes)
                counted = 0; // a post has taken some sleeper out, perhaps this one
            if (Count(state) != 0) {
                if (m_state.compare_exchange_weak(state, state - counted - 1, std::memory_order_acquire,
                                                  std::memory_order_relaxed))
                    return true;
            } else if (!inTime) {
                if (counted == 0 || m_state.compare_exchange_weak(state, state - counted, std::memory_order_relaxed))
                    return false;
            } else if (counted != 0) {
                inTime = WaitOnWord(SleepersWord(), Upper(state), limit.Left());
                state = m_state.load(std::memory_order_relaxed);
            } else if (state >= MostSleepers) { // those ended by force may have filled it up
                WaitOnWord(SleepersWord(), Upper(state), limit.Left(1000));
                inTime = limit.Left() != 0;
                state = m_state.load(std::memory_order_relaxed);
            } else if (m_state.compare_exchange_weak(state, state + OneSleeper, std::memory_order_relaxed)) {
                state += OneSleeper;
                counted = OneSleeper;
                wakes = state & Wakes;
            }
        }
    }

    std::atomic<std::uint64_t> m_state;
};

} // namespace Platform
