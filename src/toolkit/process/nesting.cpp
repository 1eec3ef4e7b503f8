#include "toolkit/process/nesting.h"

#include <algorithm>

#include "platform/waitword.h"

namespace Qzc {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

const void* Nesting::ThisThread() {
    static thread_local char t_place = 0;
    return &t_place;
}

// Sleeps until the thread inside may be out; false when the time is up.
bool Nesting::WaitOutside(std::uint32_t word, bool& slept, Deadline deadline) {
    constexpr microseconds FirstNap(1000);
    constexpr microseconds LaterNaps(20000);
    if ((word & Waiting) == 0 &&
        !m_word.compare_exchange_strong(word, word | Waiting, std::memory_order_relaxed, std::memory_order_relaxed))
        return true;
    microseconds nap = slept ? LaterNaps : FirstNap;
    if (deadline != Deadline::max()) {
        const auto left = std::chrono::ceil<microseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            return false;
        nap = std::min(nap, left);
    }
    Platform::WaitOnWord(&m_word, word | Waiting, nap.count());
    slept = true;
    return true;
}

Nesting::Entry Nesting::EnterSlowly(Deadline deadline) {
    bool slept = false;
    for (int spin = 0;; ++spin) {
        std::uint32_t word = m_word.load(std::memory_order_relaxed);
        if ((word & Count) == Count)
            return Entry::Refused;
        if ((word & Inside) != 0 && !IsRecursion()) {
            if (spin < Platform::SpinCount)
                Platform::PauseSpinning();
            else if (!WaitOutside(word, slept, deadline))
                return Entry::Refused;
            continue;
        }
        const bool first = (word & (Inside | Count)) == 0;
        if (m_word.compare_exchange_weak(word, (word + 1) | (first ? Inside : 0), std::memory_order_acquire,
                                         std::memory_order_relaxed))
            return first ? Entry::First : Entry::Nested;
    }
}

bool Nesting::LeaveSlowly() {
    bool slept = false;
    for (int spin = 0;; ++spin) {
        std::uint32_t word = m_word.load(std::memory_order_relaxed);
        const bool recursion = IsRecursion();
        if ((word & Inside) != 0 && !recursion) {
            if (spin < Platform::SpinCount)
                Platform::PauseSpinning();
            else
                WaitOutside(word, slept, Deadline::max());
            continue;
        }
        if ((word & Count) == 0 || (recursion && (word & Count) == 1))
            return false;
        const bool last = (word & Count) == 1;
        if (m_word.compare_exchange_weak(word, (word - 1) | (last ? Inside : 0), std::memory_order_acquire,
                                         std::memory_order_relaxed))
            return last;
    }
}

void Nesting::GoInside() {
    bool slept = false;
    for (;;) {
        std::uint32_t word = m_word.load(std::memory_order_relaxed);
        if ((word & Inside) != 0)
            WaitOutside(word, slept, Deadline::max());
        else if (m_word.compare_exchange_weak(word, word | Inside, std::memory_order_acquire,
                                              std::memory_order_relaxed))
            return;
    }
}

void Nesting::WakeAndGoOutside() {
    m_word.fetch_and(Count, std::memory_order_release);
    Platform::WakeAllWaiters(&m_word);
}

} // namespace Qzc
