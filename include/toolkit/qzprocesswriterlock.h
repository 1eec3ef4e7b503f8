#pragma once

#include "base/namespaces.h"
#include "toolkit/qzprocess.h"

namespace Qzc {

/// Locks for writing while it lives. Whether there was a change, only the callback hears.
class QzProcessWriterLock {
public:
    /// Waits as QzProcess::WriterLock does; `notify`: the callback hears of a change.
    QzProcessWriterLock(QzProcess& process, bool notify) : m_process(process) { Lock(notify); }
    ~QzProcessWriterLock() { m_process.WriterUnlock(); }
    QzProcessWriterLock(const QzProcessWriterLock&) = delete;
    QzProcessWriterLock& operator=(const QzProcessWriterLock&) = delete;

    /// Locks once more, which the destructor does not unlock.
    bool Lock(bool notify) { return m_process.WriterLock(notify); }

private:
    QzProcess& m_process;
};

} // namespace Qzc
