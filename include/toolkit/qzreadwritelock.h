#pragma once

#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// Many readers or one writer, readers first: while there are readers others join them, also when a writer
/// waits, so writers may starve.
///
/// It has no owners. Any thread may release what another one took, and a thread that takes it twice counts
/// twice: it may read twice, but never gets to write while it reads or the other way round. Releasing what
/// nobody holds does nothing.
class MOTOOLKIT_API QzReadWriteLock {
public:
    QzReadWriteLock();
    ~QzReadWriteLock();
    QzReadWriteLock(const QzReadWriteLock&) = delete;
    QzReadWriteLock& operator=(const QzReadWriteLock&) = delete;

    void readLock();    ///< waits while somebody writes
    bool tryReadLock(); ///< false while somebody writes
    void readUnlock();  ///< one of those who read

    void writeLock();    ///< waits while somebody reads or writes
    bool tryWriteLock(); ///< false while somebody reads or writes
    void writeUnlock();  ///< the one who writes

private:
    alignas(8) unsigned char m_data[88];
};

} // namespace Qzc
