#pragma once

#include <atomic>
#include <cstdint>

#include "platform/thread.h"
#include "platform/waitword.h"

namespace Platform {

/// A lock without an owner: any thread may release it. Releasing it when it is free does nothing. It needs no
/// construction at run time and no destruction, so a static one serves from the first moment to the last.
class BinaryLock {
public:
    void Lock() {
        if (!TryLock())
            LockSlowly();
    }
    bool TryLock() {
        std::uint32_t expected = Free;
        if (!IsOnlyThread())
            return m_state.compare_exchange_strong(expected, Locked, std::memory_order_acquire,
                                                   std::memory_order_relaxed);
        if (m_state.load(std::memory_order_relaxed) != Free)
            return false;
        m_state.store(Locked, std::memory_order_relaxed);
        return true;
    }
    void Unlock() {
        if (IsOnlyThread())
            m_state.store(Free, std::memory_order_relaxed);
        else if (m_state.exchange(Free, std::memory_order_release) == Contended)
            WakeOneWaiter(&m_state);
    }

    // The steps of a waiter that has something else to do between them.

    /// Locks; where somebody else has the lock it is marked as one that is slept on, and this must follow: Sleep and
    /// another attempt, or nothing, which costs a wake in vain.
    bool TryLockOrMark() { return m_state.exchange(Contended, std::memory_order_acquire) == Free; }
    void Sleep() const { WaitOnWord(&m_state, Contended); }

private:
    enum : std::uint32_t {
        Free,
        Locked,
        Contended ///< locked, and somebody may be asleep
    };

    [[gnu::noinline]] void LockSlowly() {
        // With looks that get rarer, for each takes the holder's cache line away; some 3 microseconds in all, less than
        // going to sleep and being woken costs.
        constexpr int MostPauses = 32;
        for (int pauses = 1; pauses <= MostPauses; pauses *= 2) {
            if (m_state.load(std::memory_order_relaxed) == Free && TryLock())
                return;
            for (int i = 0; i < pauses; ++i)
                PauseSpinning();
        }
        // Whoever comes through here cannot know whether others sleep, and so leaves the lock contended.
        while (!TryLockOrMark())
            Sleep();
    }

    std::atomic<std::uint32_t> m_state{Free};
};

} // namespace Platform
