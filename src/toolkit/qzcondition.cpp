#include "toolkit/qzcondition.h"

#include <atomic>
#include <cstdint>

#include "base/keldassert.h"
#include "platform/eventpair.h"
#include "toolkit/opaque.h"
#include "toolkit/qzthread.h"

namespace Qzc {

namespace {

using Platform::EventPair;

struct Condition {
    EventPair events; // signal: the auto-reset one, broadcast: the manual-reset one
    std::atomic<std::uint32_t> waiters{0};

    template <class Timeout>
    EventPair::Result Wait(QzMutex& mutex, Timeout milliseconds) {
        waiters.fetch_add(1);
        mutex.unlock();
        const EventPair::Result result = events.Wait(milliseconds());
        const bool wasLast = waiters.fetch_sub(1) == 1;
        if (wasLast && result == EventPair::Result::Manual)
            events.ResetManual();
        mutex.lock();
        return result;
    }
};

} // namespace

QzCondition::QzCondition() {
    KELDASSERT_TEXT(
        sizeof(m_data) >= sizeof(Condition),
        "sizeof(dataArray)>=sizeof(CRITICAL_SECTION)+sizeof(HANDLE)+sizeof(HANDLE)+sizeof(Qzuint)");
    new (m_data) Condition;
}

QzCondition::~QzCondition() = default;

void QzCondition::signal() {
    auto& condition = Opaque<Condition>(m_data);
    const std::uint32_t waiters = condition.waiters.load();
    if (waiters > 0)
        condition.events.SetAuto(waiters);
}

void QzCondition::broadcast() {
    auto& condition = Opaque<Condition>(m_data);
    if (condition.waiters.load() > 0)
        condition.events.SetManual();
}

void QzCondition::Wait(QzMutex& mutex) {
    Opaque<Condition>(m_data).Wait(mutex, [] { return Platform::NoTimeout; });
}

bool QzCondition::Wait(QzMutex& mutex, unsigned int deadline) {
    const auto milliseconds = [deadline] {
        return std::int64_t((deadline - static_cast<unsigned int>(QzThread::time())) / 1000000);
    };
    return Opaque<Condition>(m_data).Wait(mutex, milliseconds) != EventPair::Result::Timeout;
}

} // namespace Qzc
