#include "toolkit/qztaskmessageloop.h"

#include <algorithm>
#include <memory>

#include "base/keldassert.h"
#include "platform/unitlock.h"
#include "toolkit/opaque.h"

namespace Qzc {

using Platform::UnitLock;

namespace {

template <class T>
bool RemoveFirst(KeldArray<T*>& items, T* item) {
    const auto found = std::find(items.begin(), items.end(), item);
    if (found == items.end())
        return false;
    items.RemoveAt(static_cast<int>(found - items.begin()));
    return true;
}

} // namespace

/// Every queued task has one unit; task and unit come and go together under the lock.
class QzTaskMessageLoop::Locked {
public:
    explicit Locked(QzTaskMessageLoop& loop, bool withUnit = false) : m_lock(Opaque<UnitLock>(loop.m_lock)) {
        if (withUnit)
            m_lock.LockWithUnit();
        else
            m_lock.Lock();
    }
    ~Locked() { m_lock.Unlock(); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

    void AddUnit() { m_lock.AddUnit(); }
    void TakeUnit() { m_lock.TakeUnit(); }

private:
    UnitLock& m_lock;
};

QzTaskMessageLoop::QzTaskMessageLoop() {
    static_assert(sizeof(m_lock) >= sizeof(UnitLock));
    new (m_lock) UnitLock;
}

QzTaskMessageLoop::~QzTaskMessageLoop() {
    RemoveAllTask();
    std::destroy_at(&Opaque<UnitLock>(m_lock));
}

bool QzTaskMessageLoop::AddTaskProcessor(QzTaskProcessor* processor) {
    m_processors.Add(processor);
    return true;
}

bool QzTaskMessageLoop::RemoveTaskProcessor(QzTaskProcessor* processor) {
    return RemoveFirst(m_processors, processor);
}

bool QzTaskMessageLoop::AddTaskFilter(QzTaskFilter* filter) {
    m_filters.Add(filter);
    return true;
}

bool QzTaskMessageLoop::RemoveTaskFilter(QzTaskFilter* filter) {
    return RemoveFirst(m_filters, filter);
}

void QzTaskMessageLoop::SetTaskQueueSize(int nQueueSize) {
    KELDASSERT(nQueueSize != 0);
    m_nQueueSize = nQueueSize;
}

int QzTaskMessageLoop::GetTaskQueueSize() {
    return m_nQueueSize;
}

KeldList<QzTaskBase*>& QzTaskMessageLoop::GetTaskQueue() {
    return m_tasks;
}

bool QzTaskMessageLoop::IsTaskEmpty() {
    return GetTaskCount() == 0;
}

int QzTaskMessageLoop::GetTaskCount() {
    const Locked lock(*this);
    return m_tasks.GetCount();
}

bool QzTaskMessageLoop::IsVetoed(int event, QzTaskBase* task, unsigned char& result) {
    for (QzTaskFilter* filter : m_filters) {
        bool cancel = false;
        result = 0;
        try {
            if (filter != nullptr)
                result = filter->Filter(event, task, cancel);
        } catch (...) { // the queue must come out of this unlocked and whole
        }
        if (cancel)
            return true;
    }
    return false;
}

bool QzTaskMessageLoop::AddTask(QzTaskBase* task, bool toTail) {
    if (task == nullptr)
        return false;
    Locked lock(*this);
    unsigned char result = 0;
    if (IsVetoed(QzTaskFilter::EventAdd, task, result))
        return result != 0;
    const bool isFull = m_tasks.GetCount() >= std::max<int>(m_nQueueSize, 1);
    try {
        if (toTail)
            m_tasks.AddTail(task);
        else
            m_tasks.AddHead(task);
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (isFull)
        QzTaskBase::Release(toTail ? m_tasks.RemoveHead() : m_tasks.RemoveTail());
    else
        lock.AddUnit();
    return true;
}

QzTaskBase* QzTaskMessageLoop::GetTask() {
    const Locked lock(*this, true);
    if (m_tasks.IsEmpty())
        return nullptr;
    QzTaskBase* task = m_tasks.RemoveHead();
    unsigned char ignored = 0;
    if (IsVetoed(QzTaskFilter::EventGet, task, ignored)) {
        QzTaskBase::Release(task);
        return nullptr;
    }
    return task;
}

bool QzTaskMessageLoop::Run() {
    QzTaskBase* task = GetTask();
    if (task == nullptr)
        return false;
    const auto guarded = [](auto&& call) {
        try {
            call();
        } catch (...) { // the worker goes on with the next task
        }
    };
    if (m_processors.IsEmpty())
        guarded([&] { task->Execute(); });
    for (QzTaskProcessor* processor : m_processors) {
        if (processor != nullptr)
            guarded([&] { processor->Process(task); });
    }
    QzTaskBase::Release(task);
    return true;
}

bool QzTaskMessageLoop::RemoveTask(QzTaskBase* task) {
    Locked lock(*this);
    if (m_tasks.IsEmpty())
        return false;
    if (m_tasks.Remove(task)) {
        QzTaskBase::Release(task);
        lock.TakeUnit();
    }
    return true;
}

int QzTaskMessageLoop::RemoveAllTask() {
    Locked lock(*this);
    const int count = m_tasks.GetCount();
    for (QzTaskBase* task : m_tasks) {
        QzTaskBase::Release(task);
        lock.TakeUnit();
    }
    m_tasks.RemoveAll();
    return count;
}

void QzTaskMessageLoop::PostTask(int n) {
    if (n > 0)
        Opaque<UnitLock>(m_lock).Post(static_cast<std::uint32_t>(n));
}

} // namespace Qzc
