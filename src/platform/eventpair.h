#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "platform/waitword.h"

namespace Platform {

/// An auto-reset and a manual-reset event in one word, which makes waiting for either a single wait.
///
/// The auto-reset event lets one waiter through per setting and the manual-reset one all of them until it is
/// reset. The auto-reset event keeps as many settings as there are waiters to take them: two settings in a
/// row release two waiters, also when neither has woken up in between.
class EventPair {
public:
    enum class Result { Auto, Manual, Timeout };

    /// Sets the auto-reset event unless it is already set for each of `waiters`.
    void SetAuto(std::uint32_t waiters) {
        std::uint32_t state = m_state.load(std::memory_order_relaxed);
        do {
            if ((state >> 1) >= waiters)
                return;
        } while (!m_state.compare_exchange_weak(state, state + OneAuto, std::memory_order_release,
                                                std::memory_order_relaxed));
        WakeOneWaiter(&m_state);
    }
    void SetManual() {
        m_state.fetch_or(Manual, std::memory_order_release);
        WakeAllWaiters(&m_state);
    }
    void ResetManual() { m_state.fetch_and(~Manual, std::memory_order_relaxed); }

    /// Waits for either event; when both are set it takes the auto-reset one.
    Result Wait(std::int64_t milliseconds = NoTimeout) {
        using Clock = std::chrono::steady_clock;
        const auto limit = milliseconds >= 0 ? Clock::now() + std::chrono::milliseconds(milliseconds)
                                             : Clock::time_point::max();
        for (bool inTime = true;;) {
            std::uint32_t state = m_state.load(std::memory_order_acquire);
            while (state >= OneAuto) {
                if (m_state.compare_exchange_weak(state, state - OneAuto, std::memory_order_acquire))
                    return Result::Auto;
            }
            if (state == Manual)
                return Result::Manual;
            if (!inTime)
                return Result::Timeout;
            std::int64_t left = NoTimeout;
            if (milliseconds >= 0) {
                const auto span = std::chrono::ceil<std::chrono::milliseconds>(limit - Clock::now());
                left = span.count() > 0 ? span.count() : 0;
            }
            inTime = WaitOnWord(&m_state, 0, left);
        }
    }

private:
    static constexpr std::uint32_t Manual = 1;
    static constexpr std::uint32_t OneAuto = 2;

    std::atomic<std::uint32_t> m_state{0};
};

} // namespace Platform
