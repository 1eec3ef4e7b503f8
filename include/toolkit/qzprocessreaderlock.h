#pragma once

#include "base/namespaces.h"
#include "toolkit/qzprocess.h"

namespace Qzc {

/// Locks for reading while it lives. Whether there was a change, only the callback hears.
class QzProcessReaderLock {
public:
    /// Waits as QzProcess::ReaderLock does; `notify`: the callback hears of a change.
    QzProcessReaderLock(QzProcess& process, bool notify) : m_process(process) { Lock(notify); }
    ~QzProcessReaderLock() { m_process.ReaderUnlock(); }
    QzProcessReaderLock(const QzProcessReaderLock&) = delete;
    QzProcessReaderLock& operator=(const QzProcessReaderLock&) = delete;

    /// Locks once more, which the destructor does not unlock.
    bool Lock(bool notify) { return m_process.ReaderLock(notify); }

private:
    QzProcess& m_process;
};

} // namespace Qzc
