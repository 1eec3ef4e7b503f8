#pragma once

#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qzmutex.h"

namespace Qzc {

/// Waiting for something that other threads bring about under a QzMutex. A wait may end without a signal, so
/// what is waited for is looked at in a loop:
///     while (!ready)
///         condition.Wait(mutex);
/// The calling thread owns the mutex once, not repeatedly; it is unlocked for the time of the wait. A signal
/// with nobody waiting is lost.
class MOTOOLKIT_API QzCondition {
public:
    QzCondition();
    ~QzCondition(); ///< nobody may wait for it
    QzCondition(const QzCondition&) = delete;
    QzCondition& operator=(const QzCondition&) = delete;

    void signal();    ///< wakes one waiter
    void broadcast(); ///< wakes all waiters

    void Wait(QzMutex& mutex); ///< for as long as it takes

    /// The same until QzThread::time(), cut to 32 bits, reaches the deadline. False only when the time was
    /// up. Whole milliseconds count, and a deadline that has passed wraps around to a wait of up to 4.3
    /// seconds.
    bool Wait(QzMutex& mutex, unsigned int deadline);

private:
    alignas(8) unsigned char m_data[64];
};

} // namespace Qzc
