#pragma once

#include "base/namespaces.h"
#include "platform/thread.h"
#include "toolkit/qzmutex.h"

namespace Qzc {

/// Holds a mutex of the log while it lives. A thread that is to be ended by force meanwhile first gets out,
/// or every thread that comes to record something would wait for ever.
class LogGuard {
public:
    explicit LogGuard(QzMutex& mutex) : m_lock(mutex) { m_lock.lock(); }

private:
    Platform::TerminationShield m_shield; // first to come, last to go
    QzMutexLock m_lock;
};

} // namespace Qzc
