#pragma once

#include <atomic>

#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qztaskmessageloop.h"
#include "toolkit/qzthread.h"

namespace Qzc {

/// A worker: runs the tasks of the attached loop one after the other and pauses 1 ms after each, so one
/// worker does fewer than 1000 tasks a second. Tasks of some 10 ms and more make the pause vanish; for a
/// stream of small ones derive from QzTaskMessageLoop and call its Run from threads of your own.
class MOTOOLKIT_API QzTaskWorkThread : public QzThread {
public:
    QzTaskWorkThread();
    ~QzTaskWorkThread() override; ///< ends the thread by force; call StopThread before

    bool Attach(QzTaskMessageLoop* loop); ///< the loop outlives the thread; true
    bool StartThread();                   ///< false when the system refuses

    /// Lets a task that is being executed run to its end, waits for the thread and detaches from the loop. It
    /// takes at least 100 ms: a wake-up is posted to the loop every 100 ms until the thread has ended.
    void StopThread();

protected:
    int run() override;

private:
    friend class QzTaskManager;

    std::atomic<QzTaskMessageLoop*> m_pLoop{nullptr};
    std::atomic<unsigned char> m_bStop{1};
};

} // namespace Qzc
