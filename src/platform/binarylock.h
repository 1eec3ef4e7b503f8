#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "platform/thread.h"
#include "platform/waitword.h"

namespace Platform {

/// A lock without an owner: any thread may release it. Releasing it when it is free does nothing. It needs no
/// construction at run time and no destruction, so a static one serves from the first moment to the last.
///
/// Nobody waits: it is taken by one atomic step and given back by a plain load and store, at half the price of two
/// atomic steps. While it is held others do nothing to the word but mark it as slept on, so the store can overwrite no
/// more than such a mark, made between the load and the store. The sleeper then misses its wake, unless the store comes
/// before it sleeps, which the system looks at: so it takes a releasing thread that is stopped just there, for longer
/// than it takes to fall asleep. The same goes for a thread that is ended by force between its release and its wake.
///
/// That is why a sleeper naps: it looks at the word and marks it anew after a while. The first nap, and the first one
/// after a wake, takes a millisecond; those behind it take longer, eight at most, for who waits that long is rarely the
/// one that missed a wake. So a wake is late by eight milliseconds at most, and by one where the releasing thread was
/// not stopped for longer. Who gets the lock after a nap wakes the next one: the others wait for no nap of theirs.
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
        if (m_state.load(std::memory_order_relaxed) == Locked)
            m_state.store(Free, std::memory_order_release);
        else
            UnlockAndWake();
    }

    // The steps of a waiter that has something else to do between them.

    class Naps {
        friend BinaryLock;
        static constexpr std::int64_t First = 1000; ///< microseconds
        static constexpr std::int64_t Longest = 8000;
        std::int64_t m_next = First;
    };
    /// Locks; where somebody else has the lock it is marked as one that is slept on, and this must follow: Sleep and
    /// another attempt, or nothing, which costs a wake in vain.
    bool TryLockOrMark() { return m_state.exchange(Contended, std::memory_order_acquire) == Free; }
    void Sleep(Naps& naps) const {
        const bool woken = WaitOnWord(&m_state, Contended, naps.m_next);
        naps.m_next = woken ? Naps::First : std::min(2 * naps.m_next, Naps::Longest);
    }

private:
    enum : std::uint32_t {
        Free,
        Locked,
        Contended ///< locked, and somebody may be asleep
    };

    [[gnu::noinline]] void LockSlowly() {
        // With looks that get rarer, for each takes the holder's cache line away; some 3 microseconds in all, less than
        // going to sleep and being woken costs.
        for (int pauses = 1; pauses <= MostPauses; pauses *= 2) {
            if (m_state.load(std::memory_order_relaxed) == Free && TryLock())
                return;
            for (int i = 0; i < pauses; ++i)
                PauseSpinning();
        }
        // Whoever comes through here cannot know whether others sleep, and so leaves the lock contended.
        Naps naps;
        while (!TryLockOrMark())
            Sleep(naps);
    }

    [[gnu::noinline]] void UnlockAndWake() {
        if (m_state.exchange(Free, std::memory_order_release) == Contended)
            WakeOneWaiter(&m_state);
    }

    std::atomic<std::uint32_t> m_state{Free};
};

} // namespace Platform
