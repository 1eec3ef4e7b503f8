#include "toolkit/qzcondition.h"

#include "base/keldassert.h"
#include "platform/condition.h"
#include "toolkit/opaque.h"
#include "toolkit/qzthread.h"

namespace Qzc {

using Platform::Condition;

QzCondition::QzCondition() {
    KELDASSERT_TEXT(sizeof(m_data) >= sizeof(Condition),
                    "sizeof(dataArray)>=sizeof(CRITICAL_SECTION)+sizeof(HANDLE)+sizeof(HANDLE)+sizeof(Qzuint)");
    new (m_data) Condition;
}

QzCondition::~QzCondition() {
    std::destroy_at(&Opaque<Condition>(m_data));
}

void QzCondition::signal() {
    Opaque<Condition>(m_data).Signal();
}

void QzCondition::broadcast() {
    Opaque<Condition>(m_data).Broadcast();
}

void QzCondition::Wait(QzMutex& mutex) {
    auto& condition = Opaque<Condition>(m_data);
    const Condition::Ticket ticket = condition.Enter();
    mutex.unlock();
    condition.Wait(ticket, Platform::NoTimeout);
    mutex.lock();
}

bool QzCondition::Wait(QzMutex& mutex, unsigned int deadline) {
    auto& condition = Opaque<Condition>(m_data);
    const Condition::Ticket ticket = condition.Enter();
    mutex.unlock();
    const unsigned int left = deadline - static_cast<unsigned int>(QzThread::time());
    const bool signalled = condition.Wait(ticket, left / 1000000);
    mutex.lock();
    return signalled;
}

} // namespace Qzc
