#pragma once

#include "base/keldarray.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qztaskmessageloop.h"
#include "toolkit/qztaskworkthread.h"

namespace Qzc {

/// A loop and the workers that run its tasks.
///
/// Register processors and filters at the loop, Start, post tasks, Stop; then it may start again. Every
/// worker pauses 1 ms after each task, see QzTaskWorkThread: make tasks of 10 ms and more, or run the loop
/// yourself. Start, Stop and the destructor are the owner's; tasks may be posted from any thread.
class MOTOOLKIT_API QzTaskManager {
public:
    QzTaskManager();
    virtual ~QzTaskManager(); ///< stops
    QzTaskManager(const QzTaskManager&) = delete;
    QzTaskManager& operator=(const QzTaskManager&) = delete;

    /// The number of workers that the next Start makes, 1 at first. 0 raises the assertion; with less than 1
    /// Start makes none.
    void SetThreadCount(int nThreadsSize);
    int GetThreadCount();

    /// Makes the workers; whether there are any then. A second call adds a second set.
    bool Start();

    /// Deletes the queued tasks, lets those that are being executed run to their end and ends the workers, some
    /// 100 ms for each; true.
    bool Stop();

    /// AddTask of the loop, but always true: with filters that veto, call the loop's AddTask instead, to know
    /// whether the task is still yours.
    bool PostTask(QzTaskBase* task, bool toTail);

    QzTaskMessageLoop& GetMessageLoop(); ///< the queue, for processors and filters

private:
    QzTaskMessageLoop m_loop;
    KeldArray<QzTaskWorkThread*> m_threads;
    int m_nThreads = 1;
};

} // namespace Qzc
