#pragma once

#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// The library's lock. The thread that owns it may lock it again and unlocks it as often. To unlock a mutex
/// that the calling thread does not own does nothing.
///
/// Whoever waits is woken when it is free. In rare cases, when the system stops the owner in the midst of its unlock or
/// it is ended by force there, that comes late, by eight milliseconds at most.
class MOTOOLKIT_API QzMutex {
public:
    explicit QzMutex(unsigned char ignored = 0); ///< the argument means nothing
    ~QzMutex();                                  ///< nobody may own it or wait for it
    QzMutex(const QzMutex&) = delete;
    QzMutex& operator=(const QzMutex&) = delete;

    void lock();    ///< waits until the calling thread owns it
    bool trylock(); ///< false, and no wait, while another thread owns it
    void unlock();  ///< one time of those that the calling thread has locked it
    bool locked();  ///< whether another thread owns it; false for the owner

private:
    alignas(8) unsigned char m_data[40];
};

/// Unlocks a mutex when it goes out of scope. The constructor does not lock:
///     QzMutexLock lock(m_mutex);
///     lock.lock();
/// The destructor always unlocks, once: a guard that was never locked takes away a lock that its thread holds
/// by other means.
class QzMutexLock {
public:
    explicit QzMutexLock(QzMutex& mutex) : m_mutex(mutex) {} ///< does not lock
    ~QzMutexLock() { m_mutex.unlock(); }
    QzMutexLock(const QzMutexLock&) = delete;
    QzMutexLock& operator=(const QzMutexLock&) = delete;

    QzMutex& mutex() { return m_mutex; }         ///< the one that is guarded
    void lock() { m_mutex.lock(); }              ///< see QzMutex::lock
    bool trylock() { return m_mutex.trylock(); } ///< see QzMutex::trylock
    bool locked() { return m_mutex.locked(); }   ///< see QzMutex::locked
    void unlock() { m_mutex.unlock(); }          ///< see QzMutex::unlock

private:
    QzMutex& m_mutex;
};

} // namespace Qzc
