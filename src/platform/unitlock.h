#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "platform/recursivelock.h"
#include "platform/thread.h"
#include "platform/waitword.h"

namespace Platform {

/// A lock and a count of units that is guarded by it: for a queue with a unit for each thing in it, from which
/// threads take when there is a unit. As a mutex and a semaphore would be, but a unit and what it stands for change
/// in one step, and threads are not woken faster than they can come: one at a time, and that one wakes the next if
/// units are left when it has the lock.
///
/// The lock may be taken again by its owner. Units beyond the maximum are not counted.
class UnitLock {
public:
    static constexpr std::uint32_t Maximum = 0x7FFFFFFF;

    void Lock() { m_lock.Lock(); }
    void Unlock() {
        if (m_wakesOnUnlock)
            UnlockAndWake();
        else
            m_lock.Unlock();
    }

    /// Waits for a unit and takes it. The caller then has the lock. If it had it before, it keeps it while it waits,
    /// and only Post can help it.
    void LockWithUnit() {
        Lock();
        if (!TakeUnit())
            AwaitUnit();
        if (m_units != 0 && m_sleepers.load(std::memory_order_relaxed) != 0)
            WakeOnUnlock();
    }

    // These two are for the owner of the lock.

    void AddUnit() {
        if (m_units < Maximum)
            ++m_units;
        if (m_sleepers.load(std::memory_order_relaxed) != 0)
            WakeOnUnlock();
    }
    bool TakeUnit() {
        if (m_posted.load() != 0)
            m_units = std::min(m_units + m_posted.exchange(0), Maximum);
        if (m_units == 0)
            return false;
        --m_units;
        return true;
    }

    /// Adds units; any thread, also while another one has the lock.
    void Post(std::uint32_t count) {
        std::uint32_t posted = m_posted.load();
        while (!m_posted.compare_exchange_weak(posted, posted + std::min(count, Maximum - posted))) {
        }
        if (m_sleepers.load() == 0)
            return;
        const TerminationShield shield; // others rely on the wake that this one has promised
        if (!m_isWaking.exchange(true)) {
            m_wakes.fetch_add(1);
            WakeOneWaiter(&m_wakes);
        }
    }

private:
    // m_isWaking: a sleeper has been woken and has not come yet. It looks for units when it comes, so nobody else
    // need be woken for those that are added until then. Whoever is about to sleep takes the mark away, for it may
    // be left by a thread that was ended by force: a wake too many does no harm.
    //
    // Post has no lock to go by. It adds its units and then looks for sleepers and for the mark; a sleeper counts
    // itself, takes the mark away, and then looks for posted units. In the one order of these (sequentially
    // consistent) steps one of the two sees the other.

    void WakeOnUnlock() {
        if (m_isWaking.load(std::memory_order_relaxed) || m_isWaking.exchange(true))
            return;
        m_wakes.fetch_add(1);
        m_wakesOnUnlock = true;
    }

    void UnlockAndWake() {
        const TerminationShield shield;
        m_wakesOnUnlock = false;
        m_lock.Unlock();
        WakeOneWaiter(&m_wakes); // the object may be gone
    }

    void AwaitUnit() {
        do {
            const std::uint32_t wakes = m_wakes.load();
            m_sleepers.fetch_add(1);
            m_isWaking.store(false);
            if (m_posted.load() == 0) {
                // Until it has the lock again a wake may be meant for it that others need when it is ended.
                const LastAct handOn([](void* self) { static_cast<UnitLock*>(self)->WakeAnother(); }, this);
                m_lock.Unlock();
                WaitOnWord(&m_wakes, wakes);
                m_lock.Lock();
            }
            m_sleepers.fetch_sub(1);
            m_isWaking.store(false);
        } while (!TakeUnit());
    }

    void WakeAnother() {
        m_sleepers.fetch_sub(1);
        m_isWaking.store(false);
        m_wakes.fetch_add(1);
        WakeOneWaiter(&m_wakes);
    }

    RecursiveLock m_lock;
    std::uint32_t m_units = 0;
    bool m_wakesOnUnlock = false;
    std::atomic<bool> m_isWaking{false};
    std::atomic<std::uint32_t> m_posted{0}; ///< units that are not yet in m_units
    std::atomic<std::uint32_t> m_sleepers{0};
    std::atomic<std::uint32_t> m_wakes{0}; ///< a running number, slept on
};

} // namespace Platform
