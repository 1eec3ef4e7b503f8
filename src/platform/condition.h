#pragma once

#include <atomic>
#include <cstdint>

#include "platform/binarylock.h"
#include "platform/thread.h"
#include "platform/waitword.h"

namespace Platform {

/// Wakes threads that wait, and only those that waited before: who comes later takes nobody's wake away.
///
/// Every signal starts a new generation and lets one more waiter go. A waiter may go once a generation newer
/// than its own has come, so whoever sleeps when a signal comes is fit for it, and waking any one of them
/// will do.
///
/// Why the memory orders do. m_released, and every change of the other two, is ordered by m_guard.
/// - Release's first load, without the guard, may see no waiter only where the signal does not come after the wait: a
///   waiter that unlocked its mutex before the signaller locked it counted itself before it unlocked, so happens-before
///   reaches from the one to the other.
/// - Wait's loads of m_generation decide nothing but whether to look under the guard: there it is read again. A waiter
///   that read the old generation is not put to sleep once it has changed, and the wake follows the change.
/// - What the signaller wrote before, the waiter sees by the guard that it takes in Leave, after the signaller's.
class Condition {
public:
    using Ticket = std::uint32_t;

    /// Counts the calling thread among the waiters. It must then Wait.
    Ticket Enter() {
        const Guarded guarded(*this);
        m_waiters.store(m_waiters.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        return m_generation.load(std::memory_order_relaxed);
    }

    /// False when the time in milliseconds was up.
    bool Wait(Ticket ticket, std::int64_t milliseconds) {
        const WaitLimit limit(milliseconds >= 0 ? milliseconds * 1000 : NoTimeout);
        for (bool inTime = true;;) {
            const std::uint32_t generation = m_generation.load(std::memory_order_acquire);
            if (generation != ticket && Leave(ticket, false))
                return true;
            if (!inTime)
                return Leave(ticket, true);
            inTime = WaitOnWord(&m_generation, generation, limit.Left());
        }
    }

    void Signal() {
        if (Release(1))
            WakeOneWaiter(&m_generation);
    }
    void Broadcast() {
        if (Release(UINT32_MAX))
            WakeAllWaiters(&m_generation);
    }

private:
    // A thread that is ended by force in here would shut out all others.
    class Guarded {
    public:
        explicit Guarded(Condition& condition) : m_condition(condition) { m_condition.m_guard.Lock(); }
        ~Guarded() { m_condition.m_guard.Unlock(); }
        Guarded(const Guarded&) = delete;
        Guarded& operator=(const Guarded&) = delete;

    private:
        TerminationShield m_shield;
        Condition& m_condition;
    };

    bool Release(std::uint32_t count) {
        if (m_waiters.load() == 0)
            return false;
        const Guarded guarded(*this);
        const std::uint32_t left = m_waiters.load(std::memory_order_relaxed) - m_released;
        m_released += count < left ? count : left;
        m_generation.fetch_add(1, std::memory_order_release);
        return true;
    }

    /// Takes a release if there is one that the ticket is fit for, which is the result; without one the
    /// waiter stays counted unless it gives up.
    bool Leave(Ticket ticket, bool givesUp) {
        const Guarded guarded(*this);
        const bool released = m_generation.load(std::memory_order_relaxed) != ticket && m_released > 0;
        if (released)
            --m_released;
        if (released || givesUp)
            m_waiters.store(m_waiters.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
        return released;
    }

    BinaryLock m_guard;
    std::atomic<std::uint32_t> m_generation{0};
    std::atomic<std::uint32_t> m_waiters{0};
    std::uint32_t m_released = 0; ///< how many of the waiters may go
};

} // namespace Platform
