#pragma once

#include <atomic>
#include <cstdint>

#include "platform/globallock.h"

namespace Platform {

/// Many readers or one writer, readers first: while readers hold it further readers enter, whoever waits to
/// write. No owners: any thread may release. Releasing what nobody holds does nothing.
///
/// A reader counts itself before it looks for a writer. If there is one, the lock passes to all counted
/// readers in the moment in which the writer lets go; they only have to notice. So the readers that are counted wait
/// while there is a writer and hold the lock while there is none: one count is both.
///
/// A thread that is ended by force while it waits is taken out again.
///
/// Why the memory orders do. Every change of m_state is a read-modify-write, so each release heads a release sequence
/// that goes on through all later changes, also the relaxed ones, and an acquire that reads any later value
/// synchronises with it.
/// - Writer to reader: UnlockWrite releases; the reader's fetch_add, or the load in AwaitWriter, that finds no Writing
///   reads a later value, and acquires.
/// - Readers to writer: each RemoveReader releases; the writer's exchange finds no reader, so it reads a value later
///   than all of theirs, and acquires. Writer to writer: the same with UnlockWrite.
/// - UnlockRead's first load is relaxed: a caller that reads sees its own fetch_add or a later value, by coherence, and
///   there Writing is clear until it leaves.
/// - No wake is lost: who changes the word so that a sleeper may go on wakes after the change, and a sleeper is put to
///   sleep only while the word is what it last saw, which the system looks at in one step.
class ReadWriteLock {
public:
    void LockRead() {
        if ((m_state.fetch_add(OneReader, std::memory_order_acquire) & Writing) != 0)
            AwaitWriter();
    }
    bool TryLockRead() {
        std::uint32_t state = m_state.load(std::memory_order_relaxed);
        while ((state & Writing) == 0) {
            if (m_state.compare_exchange_weak(state, state + OneReader, std::memory_order_acquire,
                                              std::memory_order_relaxed))
                return true;
        }
        return false;
    }
    void UnlockRead() {
        const std::uint32_t state = m_state.load(std::memory_order_relaxed);
        if (state >= OneReader && (state & Writing) == 0)
            RemoveReader();
    }

    void LockWrite() {
        std::uint32_t expected = 0;
        if (!m_state.compare_exchange_strong(expected, Writing, std::memory_order_acquire, std::memory_order_relaxed))
            LockWriteSlowly();
    }
    bool TryLockWrite() {
        std::uint32_t state = m_state.load(std::memory_order_relaxed);
        while ((state & ~WriterWaits) == 0) {
            if (m_state.compare_exchange_weak(state, state | Writing, std::memory_order_acquire,
                                              std::memory_order_relaxed))
                return true;
        }
        return false;
    }
    void UnlockWrite() {
        const std::uint32_t before = m_state.fetch_and(~Writing, std::memory_order_release);
        if ((before & Writing) != 0 && before != Writing)
            WakeAllWaiters(&m_state);
    }

private:
    static constexpr std::uint32_t Writing = 1;
    static constexpr std::uint32_t WriterWaits = 2;
    static constexpr std::uint32_t OneReader = 4;

    void RemoveReader() {
        const std::uint32_t before = m_state.fetch_sub(OneReader, std::memory_order_release);
        if (before == (OneReader | WriterWaits))
            WakeOneWaiter(&m_state); // the only one asleep, see LockWriteSlowly
    }

    void AwaitWriter() {
        // It may be holding the lock already when it is ended: that is given up in the same way.
        const LastAct leave([](void* self) { static_cast<ReadWriteLock*>(self)->RemoveReader(); }, this);
        for (int spin = 0;; ++spin) {
            const std::uint32_t state = m_state.load(std::memory_order_acquire);
            if ((state & Writing) == 0)
                return;
            if (spin < SpinCount)
                PauseSpinning();
            else
                WaitOnWord(&m_state, state);
        }
    }

    // One writer at a time comes to the word itself, the others queue at the gate: a reader that leaves last
    // has one thread to wake. Outside its sleep the one at the gate is shielded, so when it is ended it has the gate
    // and not yet the lock.
    void LockWriteSlowly() {
        m_writerGate.Lock();
        {
            const LastAct leave([](void* gate) { static_cast<GlobalLock*>(gate)->Abandon(); }, &m_writerGate);
            std::uint32_t state = m_state.load(std::memory_order_relaxed);
            for (;;) {
                if ((state & ~WriterWaits) == 0) {
                    if (m_state.compare_exchange_weak(state, Writing, std::memory_order_acquire,
                                                      std::memory_order_relaxed))
                        break;
                } else if ((state & WriterWaits) != 0 ||
                           m_state.compare_exchange_weak(state, state | WriterWaits, std::memory_order_relaxed)) {
                    LowerShield();
                    WaitOnWord(&m_state, state | WriterWaits);
                    RaiseShield();
                    state = m_state.load(std::memory_order_relaxed);
                }
            }
        }
        m_writerGate.Abandon();
        // A request that came meanwhile is met now: the lock does not go down with a thread that never used it.
        const LastAct giveBack([](void* self) { static_cast<ReadWriteLock*>(self)->UnlockWrite(); }, this);
        LowerShield();
    }

    std::atomic<std::uint32_t> m_state{0};
    GlobalLock m_writerGate;
};

} // namespace Platform
