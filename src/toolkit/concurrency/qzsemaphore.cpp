#include "toolkit/qzsemaphore.h"

#include "base/keldassert.h"
#include "platform/semaphore.h"
#include "toolkit/opaque.h"

namespace Qzc {

using Platform::Semaphore;

QzSemaphore::QzSemaphore(int initialCount) {
    KELDASSERT(sizeof(m_data) >= sizeof(Semaphore));
    new (m_data) Semaphore(KELDASSERT(initialCount >= 0) ? static_cast<unsigned int>(initialCount) : 0);
}

QzSemaphore::~QzSemaphore() {
    std::destroy_at(&Opaque<Semaphore>(m_data));
}

void QzSemaphore::Wait() {
    Opaque<Semaphore>(m_data).Wait();
}

bool QzSemaphore::TimedWait(unsigned int milliseconds) {
    return Opaque<Semaphore>(m_data).TimedWait(milliseconds);
}

bool QzSemaphore::TryWait() {
    return Opaque<Semaphore>(m_data).TryWait();
}

void QzSemaphore::Post() {
    Opaque<Semaphore>(m_data).Post();
}

} // namespace Qzc
