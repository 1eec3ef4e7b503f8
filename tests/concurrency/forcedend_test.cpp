// One thread after the other is ended by force at a moment that nobody chose, in the middle of something; then another
// thread does the same thing and must come through. A hang is the fault that these tests find.

#include <gtest/gtest.h>

#include "concurrency/forcedend.h"
#include "platform/waitword.h"
#include "support.h"
#include "toolkit/qzcondition.h"
#include "toolkit/qzmutex.h"
#include "toolkit/qzreadwritelock.h"
#include "toolkit/qzsemaphore.h"
#include "toolkit/qzthreadmanager.h"

using namespace Qzc;

#if UNDER_ADDRESS_SANITIZER
// A thread that vanishes leaves behind what it has: that is so by its nature.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
const char* __asan_default_options() { // NOLINT(bugprone-reserved-identifier)
    return "detect_leaks=0";
}
#endif

TEST(ForcedEnd, AmidWhatAllShare) {
    for (const Body& work : SharedWorks())
        EndAmid(work, work);
    QzThreadManager::GetInstance().DestoryThread("x");
    EXPECT_EQ(QzThreadManager::GetInstance().GetActiveCount(), 0);
}

TEST(ForcedEnd, AmidOtherThings) {
    QzMutex mutex;
    QzCondition condition;
    QzSemaphore end(0);
    BodyThread sleeper([&] { return end.Wait(), 0; });
    ASSERT_TRUE(sleeper.start(0));
    EndAmid([] {}, [] {});
    EndAmid([] { std::this_thread::sleep_for(std::chrono::hours(1)); }, [] {});
    EndAmid([&] { sleeper.join(); }, [] {});
    EndAmid([&] { condition.Wait(mutex); }, [&] { condition.signal(); });
}

// Threads that are ended while they wait leave the lock to the others, whatever it is that they wait for.
TEST(ForcedEnd, WaitersAreTakenOut) {
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        QzReadWriteLock lock;
        QzMutex mutex;
        QzSemaphore semaphore(0);
        const bool written = round % 2 == 0; // what they wait behind
        written ? lock.writeLock() : lock.readLock();
        mutex.lock();
        std::atomic<int> waiting{0};
        const auto waiter = [&](const Body& wait) {
            return [&waiting, wait] {
                ++waiting;
                wait();
                ADD_FAILURE() << "there was nothing to wait for";
                return 0;
            };
        };
        const auto write = waiter([&] { lock.writeLock(); });
        const auto read = written ? waiter([&] { lock.readLock(); }) : write;
        const auto lockMutex = waiter([&] { mutex.lock(); });
        const auto wait = waiter([&] { semaphore.Wait(); });
        BodyThread threads[] = {BodyThread(write), BodyThread(write),     BodyThread(read),
                                BodyThread(read),  BodyThread(lockMutex), BodyThread(wait)};
        for (BodyThread& thread : threads)
            ASSERT_TRUE(thread.start(0));
        while (waiting < 6)
            QzThread::yield();
        if (round % 4 < 2)
            AWhile(); // asleep; else on their way there
        for (BodyThread& thread : threads)
            ASSERT_TRUE(thread.cancel());
        written ? lock.writeUnlock() : lock.readUnlock();
        mutex.unlock();
        semaphore.Post();
        Together([&] { lock.readLock(), lock.readUnlock(); }, [&] { lock.writeLock(), lock.writeUnlock(); },
                 [&] { mutex.lock(), mutex.unlock(); }, [&] { semaphore.Wait(); });
        EXPECT_TRUE(lock.tryWriteLock());
    }
}

// Of two sleepers the first to be woken goes away as one does that is ended at that moment.
TEST(ForcedEnd, WakesAreHandedOn) {
    std::atomic<std::uint32_t> word{0};
    std::atomic<int> asleep{0}, woken{0};
    const auto sleep = [&] {
        ++asleep;
        Platform::WaitOnWord(&word, 0);
        if (woken++ == 0)
            Platform::AbandonWait();
    };
    Together(sleep, sleep, [&] {
        while (asleep < 2)
            QzThread::yield();
        AWhile();
        Platform::WakeOneWaiter(&word);
        for (int i = 0; i < 2000 && woken < 2; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_EQ(woken, 2);
        Platform::WakeAllWaiters(&word);
    });
}
