#include "toolkit/qztaskmessageloop.h"

#include <algorithm>

#include "base/keldassert.h"

namespace Qzc {

// Count and queue
// ---------------
// Every queued task has one unit in the semaphore. Units are added and taken back under the queue's mutex;
// only GetTask takes its unit before it has the mutex. If in between the task is removed, RemoveTask finds no
// unit to take back, and notes a late one. The next GetTask settles it: on an empty queue the late unit was
// its own, and if it gets a task instead, that task's unit is still in the semaphore and is taken back now.

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

QzTaskMessageLoop::QzTaskMessageLoop() = default;

QzTaskMessageLoop::~QzTaskMessageLoop() {
    RemoveAllTask();
    while (m_semaphore.TryWait()) {
    }
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
    QzMutexLock lock(m_mutex);
    lock.lock();
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
    QzMutexLock lock(m_mutex);
    lock.lock();
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
        m_semaphore.Post();
    return true;
}

QzTaskBase* QzTaskMessageLoop::GetTask() {
    m_semaphore.Wait();
    QzMutexLock lock(m_mutex);
    lock.lock();
    if (m_tasks.IsEmpty()) {
        if (m_nLateUnits > 0)
            --m_nLateUnits;
        return nullptr;
    }
    QzTaskBase* task = m_tasks.RemoveHead();
    if (m_nLateUnits > 0 && m_semaphore.TryWait())
        --m_nLateUnits;
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
    QzMutexLock lock(m_mutex);
    lock.lock();
    if (m_tasks.IsEmpty())
        return false;
    if (m_tasks.Remove(task)) {
        QzTaskBase::Release(task);
        TakeUnit();
    }
    return true;
}

int QzTaskMessageLoop::RemoveAllTask() {
    QzMutexLock lock(m_mutex);
    lock.lock();
    const int count = m_tasks.GetCount();
    for (QzTaskBase* task : m_tasks) {
        QzTaskBase::Release(task);
        TakeUnit();
    }
    m_tasks.RemoveAll();
    return count;
}

void QzTaskMessageLoop::TakeUnit() {
    if (!m_semaphore.TryWait())
        ++m_nLateUnits;
}

void QzTaskMessageLoop::PostTask(int n) {
    for (int i = 0; i < n; ++i)
        m_semaphore.Post();
}

} // namespace Qzc
