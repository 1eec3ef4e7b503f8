#include "toolkit/qzreadwritelock.h"

#include "base/keldassert.h"
#include "platform/readwritelock.h"
#include "toolkit/opaque.h"

namespace Qzc {

using Platform::ReadWriteLock;

QzReadWriteLock::QzReadWriteLock() {
    KELDASSERT_TEXT(sizeof(m_data) >= sizeof(ReadWriteLock), "sizeof(dataArray)>=sizeof(Qz_RWLOCK)");
    new (m_data) ReadWriteLock;
}

QzReadWriteLock::~QzReadWriteLock() {
    std::destroy_at(&Opaque<ReadWriteLock>(m_data));
}

void QzReadWriteLock::readLock() {
    Opaque<ReadWriteLock>(m_data).LockRead();
}

bool QzReadWriteLock::tryReadLock() {
    return Opaque<ReadWriteLock>(m_data).TryLockRead();
}

void QzReadWriteLock::readUnlock() {
    Opaque<ReadWriteLock>(m_data).UnlockRead();
}

void QzReadWriteLock::writeLock() {
    Opaque<ReadWriteLock>(m_data).LockWrite();
}

bool QzReadWriteLock::tryWriteLock() {
    return Opaque<ReadWriteLock>(m_data).TryLockWrite();
}

void QzReadWriteLock::writeUnlock() {
    Opaque<ReadWriteLock>(m_data).UnlockWrite();
}

} // namespace Qzc
