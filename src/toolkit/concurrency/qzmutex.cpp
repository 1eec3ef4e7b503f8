#include "toolkit/qzmutex.h"

#include "base/keldassert.h"
#include "platform/recursivelock.h"
#include "toolkit/opaque.h"

namespace Qzc {

using Platform::RecursiveLock;

QzMutex::QzMutex(unsigned char) {
    KELDASSERT_TEXT(sizeof(m_data) >= sizeof(RecursiveLock), "sizeof(dataArray)>=sizeof(CRITICAL_SECTION)");
    new (m_data) RecursiveLock;
}

QzMutex::~QzMutex() {
    std::destroy_at(&Opaque<RecursiveLock>(m_data));
}

void QzMutex::lock() {
    Opaque<RecursiveLock>(m_data).Lock();
}

bool QzMutex::trylock() {
    return Opaque<RecursiveLock>(m_data).TryLock();
}

void QzMutex::unlock() {
    Opaque<RecursiveLock>(m_data).Unlock();
}

bool QzMutex::locked() {
    if (!trylock())
        return true;
    unlock();
    return false;
}

} // namespace Qzc
