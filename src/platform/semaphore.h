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
            WaitSlowly();
    }
    bool TryWait() {
        std::uint64_t state = m_state.load(std::memory_order_relaxed);
        while (Count(state) != 0) {
            if (m_state.compare_exchange_weak(state, state - 1, std::memory_order_acquire,
                                              std::memory_order_relaxed))
                return true;
        }
        return false;
    }
    void Post() {
        std::uint64_t state = m_state.load(std::memory_order_relaxed);
        do {
            if (Count(state) == Maximum)
                return;
        } while (!m_state.compare_exchange_weak(state, state + 1, std::memory_order_release,
                                                std::memory_order_relaxed));
        // From here on the semaphore may be gone: what was read with the exchange has to do.
        if (state >= OneWaiter)
            WakeOneWaiter(CountWord());
    }

private:
    // The count and the number of sleepers in one word, so that a post sees both at one moment.
    static constexpr std::uint64_t OneWaiter = std::uint64_t(1) << 32;

    static std::uint32_t Count(std::uint64_t state) { return static_cast<std::uint32_t>(state); }

    const void* CountWord() const {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
        return reinterpret_cast<const std::uint32_t*>(&m_state) + 1;
#else
        return &m_state;
#endif
    }

    void WaitSlowly() {
        for (int spin = 0; spin < SpinCount; ++spin) {
            PauseSpinning();
            if (TryWait())
                return;
        }
        std::uint64_t state = m_state.fetch_add(OneWaiter, std::memory_order_relaxed) + OneWaiter;
        for (;;) {
            if (Count(state) == 0) {
                WaitOnWord(CountWord(), 0);
                state = m_state.load(std::memory_order_relaxed);
            } else if (m_state.compare_exchange_weak(state, state - OneWaiter - 1, std::memory_order_acquire,
                                                     std::memory_order_relaxed)) {
                return;
            }
        }
    }

    std::atomic<std::uint64_t> m_state;
};

} // namespace Platform
