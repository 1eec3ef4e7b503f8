#pragma once

#include <atomic>

#include "base/keldarray.h"
#include "base/keldlist.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qztaskbase.h"
#include "toolkit/qztaskfilter.h"
#include "toolkit/qztaskprocessor.h"

namespace Qzc {

/// A bounded queue of tasks and what is done with them.
///
/// A task belongs to the loop from an AddTask that queued it until it has been executed, vetoed as it was
/// taken, displaced by a full queue or removed: each of these deletes it. Processors and filters stay with
/// the caller.
///
/// Tasks may be added, taken and removed from any thread. The lists of processors and filters are not
/// guarded: fill them before workers run and leave them alone while they do.
class MOTOOLKIT_API QzTaskMessageLoop {
public:
    QzTaskMessageLoop();
    virtual ~QzTaskMessageLoop(); ///< deletes the queued tasks; nobody may be waiting in GetTask
    QzTaskMessageLoop(const QzTaskMessageLoop&) = delete;
    QzTaskMessageLoop& operator=(const QzTaskMessageLoop&) = delete;

    bool AddTaskProcessor(QzTaskProcessor* processor);    ///< true
    bool RemoveTaskProcessor(QzTaskProcessor* processor); ///< the first equal one; false when absent
    bool AddTaskFilter(QzTaskFilter* filter);             ///< true
    bool RemoveTaskFilter(QzTaskFilter* filter);          ///< the first equal one; false when absent

    /// How many tasks the queue holds at most, 200 at first. 0 raises the assertion; a size below 1 is kept
    /// but counts as 1. A smaller size takes no task out of the queue.
    void SetTaskQueueSize(int nQueueSize);
    int GetTaskQueueSize();

    /// The queue itself, unguarded: for looking, and while nobody else uses the loop.
    KeldList<QzTaskBase*>& GetTaskQueue();
    bool IsTaskEmpty(); ///< whether no task is queued
    int GetTaskCount(); ///< how many tasks are queued

    /// Queues the task, at the tail (first in, first out) or at the head (run next). A full queue makes room
    /// by deleting the task at the other end. When a filter vetoes, the result is the filter's and the task
    /// stays with the caller, as it does when memory is short or the task null (false).
    bool AddTask(QzTaskBase* task, bool toTail);

    /// Waits for a unit (one per queued task, or a PostTask) and takes the task at the head, which then
    /// belongs to the caller: see QzTaskBase::Release. Null when the queue is empty or a filter vetoed.
    QzTaskBase* GetTask();

    /// Deletes the task if it is queued. False only when the queue was empty.
    bool RemoveTask(QzTaskBase* task);
    int RemoveAllTask(); ///< deletes all queued tasks; how many

    /// Adds `n` units without tasks, which wakes as many waiting workers; nothing for `n` below 1.
    void PostTask(int n);

protected:
    friend class QzTaskWorkThread;

    /// Takes a task, has it executed by every processor, or by itself where none is registered, and deletes
    /// it. False when GetTask gave none. An exception of a processor or the task is swallowed.
    bool Run();

private:
    class Locked;

    bool IsVetoed(int event, QzTaskBase* task, unsigned char& result);

    KeldArray<QzTaskProcessor*> m_processors;
    KeldArray<QzTaskFilter*> m_filters;
    std::atomic<int> m_nQueueSize{200};
    KeldList<QzTaskBase*> m_tasks;
    alignas(8) unsigned char m_lock[64]; // and the units
};

} // namespace Qzc
