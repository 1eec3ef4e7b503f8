// What a child has of its parent's objects that is made by fork and goes on in the same program.

#include <atomic>

#include <sys/resource.h>

#include "childprocess.h"
#include "process/processlock.h"

using namespace Qzc;

using ProcessLockFork = ProcessLock;

TEST_F(ProcessLockFork, TheChildHoldsNothing) {
    lock.ProcessLockInit(name);
    // While one thread is inside the object and another has the lock, a third one forks.
    QzProcess other;
    other.ProcessLockInit(name);
    other.WriterLock(false);
    std::thread inside([&] { const QzProcessReaderLock reading(lock, false); });
    AWhile();
    auto& unlocked = SharedWithChildren<std::atomic<bool>>();
    Child child([&] {
        other.WriterUnlock(); // the parent's
        const bool holdsNothing = !lock.isLocked() && !other.isLocked();
        const bool changed = lock.ReaderLock(false); // as soon as the parent has unlocked
        return holdsNothing && changed && unlocked && Block()[2] == 2;
    });
    AWhile();
    EXPECT_TRUE(other.isLocked());
    unlocked = true;
    other.WriterUnlock();
    inside.join();
    EXPECT_TRUE(child.Succeeds());
    EXPECT_FALSE(lock.WriterLock(false)); // despite the child that ended as a reader
    EXPECT_TRUE(lock.isLocked());
}

TEST_F(ProcessLockFork, TheChildOutlivesItsParent) {
    auto& result = SharedWithChildren<std::atomic<int>>();
    Child parent([&] {
        lock.ProcessLockInit(name);
        lock.WriterLock(false);
        Child orphan([&] {
            lock.WriterLock(false);
            const bool locked = lock.isLocked();
            lock.ProcessLockRelease();
            result = locked ? 1 : -1;
            return true;
        });
        KillThisProcess();
        return false;
    });
    EXPECT_FALSE(parent.Succeeds());
    for (int i = 0; i < 20000 && result == 0; ++i)
        AWhile(1);
    EXPECT_EQ(result, 1);
}

TEST_F(ProcessLockFork, AChildThatGetsNoMoreFilesHasNoLock) {
    lock.ProcessLockInit(name);
    rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    const rlimit none = {0, files.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    Child child([&] {
        lock.WriterLock(false);
        return !lock.isLocked() && lock.ProcessLockInit(name) == 0;
    });
    setrlimit(RLIMIT_NOFILE, &files);
    EXPECT_TRUE(child.Succeeds());
}

TEST_F(ProcessLockFork, ACallbackMayNestAndFork) {
    struct Use {
        QzProcess& lock;
        bool writes;
        int child = -1;
        bool nested = false;
        static void Run(void* argument) {
            auto& self = *static_cast<Use*>(argument);
            self.writes ? self.lock.WriterLock(true) : self.lock.ReaderLock(true);
            self.nested = self.lock.isLocked();
            self.writes ? self.lock.WriterUnlock() : self.lock.ReaderUnlock();
            self.child = fork();
        }
    };
    QzProcess other;
    lock.ProcessLockInit(name);
    other.ProcessLockInit(name);
    for (const bool writes : {false, true}) {
        { const QzProcessWriterLock change(other, false); }
        Use use{lock, writes};
        lock.SetCallBack(Use::Run, &use);
        EXPECT_TRUE(writes ? lock.WriterLock(true) : lock.ReaderLock(true));
        if (use.child == 0) {
            const bool holds = lock.isLocked();
            lock.ReaderUnlock();
            lock.WriterUnlock();
            _exit(holds || lock.TimedWriterLock(1) ? 1 : 0); // the parent has it
        }
        int status = -1;
        waitpid(use.child, &status, 0);
        EXPECT_EQ(status, 0);
        EXPECT_TRUE(use.nested && lock.isLocked());
        writes ? lock.WriterUnlock() : lock.ReaderUnlock();
        EXPECT_FALSE(lock.isLocked());
    }
    EXPECT_EQ(Block()[0], 3U); // the child has written nothing
}
