#include "toolkit/qztaskmanager.h"

#include <memory>

#include "base/keldassert.h"

namespace Qzc {

QzTaskManager::QzTaskManager() {
    m_loop.SetTaskQueueSize(200);
}

QzTaskManager::~QzTaskManager() {
    Stop();
}

void QzTaskManager::SetThreadCount(int nThreadsSize) {
    KELDASSERT(nThreadsSize != 0);
    m_nThreads = nThreadsSize;
}

int QzTaskManager::GetThreadCount() {
    return m_nThreads;
}

bool QzTaskManager::Start() {
    for (int i = 0; i < m_nThreads; ++i) {
        auto worker = std::make_unique<QzTaskWorkThread>();
        worker->Attach(&m_loop);
        if (worker->StartThread())
            m_threads.Add(worker.release());
    }
    return !m_threads.IsEmpty();
}

bool QzTaskManager::Stop() {
    m_loop.RemoveAllTask();
    // All of them first: a wake-up for one may reach another, which then leaves in its place.
    for (QzTaskWorkThread* worker : m_threads)
        worker->m_bStop = 1;
    for (QzTaskWorkThread* worker : m_threads) {
        worker->StopThread();
        delete worker;
    }
    m_threads.RemoveAll();
    return true;
}

bool QzTaskManager::PostTask(QzTaskBase* task, bool toTail) {
    m_loop.AddTask(task, toTail);
    return true;
}

QzTaskMessageLoop& QzTaskManager::GetMessageLoop() {
    return m_loop;
}

} // namespace Qzc
