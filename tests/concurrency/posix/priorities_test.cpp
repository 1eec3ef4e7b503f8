#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include "concurrency/bodythread.h"
#include "system/system.h"
#include "toolkit/qzsemaphore.h"
#include "toolkit/qzthreadex.h"
#include "toolkit/qzthreadmanager.h"

using namespace Qzc;

static int WaitFor(void* semaphore) {
    static_cast<QzSemaphore*>(semaphore)->Wait();
    return 3;
}

// In a process of its own: a priority that was given up does not come back.
static const ChildRole PriorityUser("priority user", [](const Arguments&) {
    const int own = nice(5); // from 0 to 15 at most, where the surroundings are not nicer still
    QzSemaphore end(0);
    BodyThread thread([&] { return WaitFor(&end); });
    bool right = !thread.priority(QzThread::Normal) && thread.priority() == -1;
    QzThreadEx* named = QzThreadManager::GetInstance().CreateThread("named", WaitFor, &end, 0);
    right = named->SetPriority(QzThreadEx::Idle) && named->Start() && thread.start(0) && right; // for later
    right = right && named->GetPriority() == QzThreadEx::Idle && thread.priority() == QzThread::Normal;
    const auto niceOf = [&] { return getpriority(PRIO_PROCESS, thread.getcallingthreadid()); };
    right = right && Eventually([&] { return thread.getcallingthreadid() != 0; }) && niceOf() == own;
    for (const auto value : {QzThread::BelowNormal, QzThread::Idle, QzThread::Normal, QzThread::AboveNormal,
                             QzThread::Highest, QzThread::Unknown}) {
        const auto before = thread.priority();
        const bool changed = thread.priority(value);
        right = right && thread.priority() == (!changed                     ? before
                                               : value == QzThread::Unknown ? QzThread::Normal
                                                                            : value);
        if (value == QzThread::BelowNormal)
            right = right && changed && (own == 19 || niceOf() > own) && (own != 5 || niceOf() == 12);
        else if (value == QzThread::Idle)
            right = right && changed && niceOf() == 19;
    }
    end.Post();
    end.Post();
    return named->Join() && right;
});

// What a program that runs under nice sees: priorities are relative to it.
TEST(Thread, Priorities) {
    EXPECT_TRUE(ChildProcess(PriorityUser).Succeeds());
}
