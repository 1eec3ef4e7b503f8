#pragma once

#include "platform/binarylock.h"
#include "platform/thread.h"

namespace Platform {

/// The lock for state that the whole process shares; tools/check_layers.py lets nothing else guard such state. It
/// needs no construction at run time and no destruction, so a static one serves from the first moment to the last.
///
/// Who holds it has a shield: a thread that is ended by force first gets out. The shield comes before the lock, so
/// there is no moment in which a thread has the one without the other. Who only waits for it has none: it may be
/// ended by a thread that holds the lock and waits for that end. Not to be taken twice by one thread.
///
/// What a fork in the middle of it leaves to the child: see ForkLock.
class GlobalLock {
public:
    constexpr GlobalLock() = default;
    GlobalLock(const GlobalLock&) = delete;
    GlobalLock& operator=(const GlobalLock&) = delete;

    class Guard {
    public:
        explicit Guard(GlobalLock& lock) : m_lock(lock) { m_lock.Lock(); }
        ~Guard() { m_lock.Unlock(); }
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;

    private:
        GlobalLock& m_lock;
    };

    // For what a scope does not fit; everything else makes a Guard.

    void Lock() {
        RaiseShield();
        if (!m_lock.TryLock())
            LockSlowly();
    }
    void Unlock() {
        Abandon();
        LowerShield();
    }
    /// Unlocks and leaves the shield as it is: in place of a holder that had lowered it and was then ended.
    void Abandon() { m_lock.Unlock(); }

private:
    // A waiter that is ended leaves the lock marked, which costs one wake in vain, and hands on a wake that was meant
    // for it (AbandonWait).
    void LockSlowly() {
        BinaryLock::Naps naps;
        while (!m_lock.TryLockOrMark()) {
            LowerShield();
            m_lock.Sleep(naps);
            RaiseShield();
        }
    }

    BinaryLock m_lock;
};

} // namespace Platform
