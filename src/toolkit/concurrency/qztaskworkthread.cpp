#include "toolkit/qztaskworkthread.h"

#include <chrono>
#include <thread>

namespace Qzc {

QzTaskWorkThread::QzTaskWorkThread() = default;

QzTaskWorkThread::~QzTaskWorkThread() {
    cancel(); // while the members that `run` uses are still there
}

bool QzTaskWorkThread::Attach(QzTaskMessageLoop* loop) {
    m_pLoop = loop;
    return true;
}

bool QzTaskWorkThread::StartThread() {
    m_bStop = 0;
    return start(0);
}

void QzTaskWorkThread::StopThread() {
    m_bStop = 1;
    while (running()) {
        QzTaskMessageLoop* loop = m_pLoop;
        if (loop != nullptr) {
            sleep(100000000);
            loop->PostTask(1);
            // The worker needs a moment to leave. Not to give it that would cost another 100 ms.
            for (int i = 0; i < 20 && running(); ++i)
                std::this_thread::sleep_for(std::chrono::microseconds(100));
        } else {
            yield();
        }
    }
    join();
    m_pLoop = nullptr;
}

int QzTaskWorkThread::run() {
    while (m_bStop == 0) {
        QzTaskMessageLoop* loop = m_pLoop;
        if (loop != nullptr)
            loop->Run();
        if (m_bStop != 0)
            break;
        sleep(1000000);
    }
    return 1;
}

} // namespace Qzc
