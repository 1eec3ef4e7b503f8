// One thread after the other is ended by force at a moment that nobody chose, in the middle of something; then another
// thread does the same thing and must come through. A hang is the fault that these tests find.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <functional>
#include <pthread.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/forkhook.h"
#include "platform/thread.h"
#include "platform/waitword.h"
#include "support.h"
#include "toolkit/qzmutex.h"
#include "toolkit/qzprocess.h"
#include "toolkit/qzreadwritelock.h"
#include "toolkit/qzsemaphore.h"
#include "toolkit/qzthread.h"
#include "toolkit/qzthreadmanager.h"

using namespace Qzc;

#if defined(__SANITIZE_ADDRESS__)
// A thread that vanishes leaves behind what it has: that is so by its nature.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
const char* __asan_default_options() { // NOLINT(bugprone-reserved-identifier)
    return "detect_leaks=0";
}
#endif

namespace {

using Clock = std::chrono::steady_clock;

class BodyThread : public QzThread {
public:
    explicit BodyThread(std::function<void()> body) : m_body(std::move(body)) {}
    ~BodyThread() override { cancel(); }
    std::atomic<int> turns{0};

protected:
    int run() override {
        for (;;) {
            m_body();
            ++turns;
        }
    }

private:
    std::function<void()> m_body;
};

/// Ends a thread that does it again and again, `rounds` times; after each, it is done once more.
[[maybe_unused]] void EndAmid(int rounds, const std::function<void()>& work) {
    for (int round = 0; round < rounds; ++round) {
        BodyThread victim(work);
        ASSERT_TRUE(victim.start(0));
        while (victim.turns == 0)
            QzThread::yield();
        const auto until = Clock::now() + std::chrono::microseconds(round * 37 % 251);
        while (Clock::now() < until) {
        }
        ASSERT_TRUE(victim.cancel());
        Together(work);
    }
}

void AWhile() {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

/// Whether a child of fork can do it and end well.
testing::AssertionResult ChildCan(const std::function<void()>& work) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        work();
        _exit(0);
    }
    int status = -1;
    if (child > 0 && waitpid(child, &status, 0) == child && status == 0)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "pid " << child << ", status " << status << ", " << std::strerror(errno);
}

} // namespace

#if !defined(__SANITIZE_ADDRESS__) // its checks report the memory that a victim had just got
constexpr int Rounds = 100;

TEST(ForcedEnd, AmidForkHooks) {
    EndAmid(Rounds, [] {
        QzProcess lock; // tells the library to look after it in a fork
    });
    EXPECT_TRUE(ChildCan([] { QzProcess lock; }));
}

TEST(ForcedEnd, AmidTheRegistry) {
    QzThreadManager& manager = QzThreadManager::GetInstance();
    EndAmid(Rounds, [&] {
        manager.GetThread("x");
        manager.CreateThread(
            "x", [](void*) { return 0; }, nullptr, 0);
        manager.DestoryThread("x");
    });
    EXPECT_TRUE(ChildCan([&] { manager.GetThread("x"); }));
    manager.DestoryThread("x");
    EXPECT_EQ(manager.GetActiveCount(), 0);
}

#if !defined(__SANITIZE_THREAD__) // whose own locks stand in the place of the system's
TEST(ForcedEnd, AmidTheDynamicLinker) {
    EndAmid(Rounds, [] {
        dlsym(RTLD_DEFAULT, "no such symbol anywhere");
        void* library = dlopen("libm.so.6", RTLD_NOW);
        dlclose(library);
    });
}

TEST(ForcedEnd, AmidTheHeap) {
    EndAmid(Rounds, [] {
        static std::atomic<void*> s_memory;
        for (std::size_t size = 1; size < 200000; size = size * 3 + 11) {
            std::free(s_memory.exchange(std::malloc(size)));
            for (volatile int work = 0; work < 300; work = work + 1) { // the place to be stopped at
            }
        }
    });
}

#endif
#endif

// A fork while other threads hold the library's locks leaves none of them shut in the child.
TEST(ForcedEnd, ForkFindsTheRegistryWhole) {
    QzThreadManager& manager = QzThreadManager::GetInstance();
    std::atomic<bool> done{false};
    const auto use = [&] {
        while (!done) {
            manager.CreateThread(
                "fork", [](void*) { return 0; }, nullptr, 0);
            manager.DestoryThread("fork");
        }
    };
    Together(use, use, [&] {
        for (int i = 0; i < 100; ++i) {
            EXPECT_TRUE(ChildCan([&] {
                manager.DestoryThread("fork");
                QzThreadEx* thread = manager.CreateThread(
                    "fork", [](void*) { return 4; }, nullptr, 0);
                if (thread == nullptr || thread->IsAlive())
                    _exit(1);
            }));
        }
        done = true;
    });
    manager.DestoryThread("fork");
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
        const auto waiter = [&](const std::function<void()>& wait) {
            return [&waiting, wait] {
                ++waiting;
                wait();
                ADD_FAILURE() << "there was nothing to wait for";
            };
        };
        const auto write = waiter([&] { lock.writeLock(); });
        const auto read = written ? waiter([&] { lock.readLock(); }) : write;
        BodyThread threads[] = {BodyThread(write),
                                BodyThread(write),
                                BodyThread(read),
                                BodyThread(read),
                                BodyThread(waiter([&] { mutex.lock(); })),
                                BodyThread(waiter([&] { semaphore.Wait(); }))};
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

// What is to be called in the child of a fork is not called for objects on a stack that was given back.
TEST(ForcedEnd, WhatLayOnItsStackIsForgotten) {
    static std::atomic<bool> s_added{false};
    static const auto lieThere = [](void (*rest)()) {
        Platform::ForkHook hook = {[](void*) { _exit(9); }, nullptr};
        hook.object = &hook;
        Platform::AddForkHook(hook, Platform::ForkHold());
        s_added = true;
        rest();
    };
    const auto start = [](Platform::ThreadMain body) {
        s_added = false;
        Platform::Thread* thread = Platform::NewThread(body, nullptr, 0, Platform::ThreadPriority::Other);
        EXPECT_TRUE(Platform::StartThread(*thread));
        while (!s_added)
            QzThread::yield();
        return thread;
    };
    Platform::Thread* victim = start([](void*) {
        lieThere([] { std::this_thread::sleep_for(std::chrono::hours(1)); });
        return 0;
    });
    EXPECT_FALSE(ChildCan([] {})); // the hook is there
    EXPECT_TRUE(Platform::TerminateThread(*victim, 0));
    Platform::CloseThread(victim);
    EXPECT_TRUE(ChildCan([] {}));
    Platform::Thread* leaver = start([](void*) {
        lieThere([] { Platform::ExitThread(0); });
        return 0;
    });
    EXPECT_TRUE(Platform::WaitForThread(*leaver));
    Platform::CloseThread(leaver);
    EXPECT_TRUE(ChildCan([] {}));
#if !defined(__SANITIZE_THREAD__) // which waits for ever for a thread that just stops
    Together([] { lieThere([] { Platform::ExitThread(0); }); });
    EXPECT_TRUE(ChildCan([] {}));
#endif
}

// The next threads get the stacks of those that vanished, and nothing of what these kept there.
TEST(ForcedEnd, LeavesNothingToTheNextThread) {
    static pthread_key_t s_key;
    static std::atomic<int> s_destroyed{0};
    ASSERT_EQ(pthread_key_create(&s_key, [](void*) { ++s_destroyed; }), 0);
    static const auto leave = [] {
        pthread_setspecific(s_key, &s_key);
        QzThread::exit(0);
    };
    struct LeavesLate {
        ~LeavesLate() { leave(); }
    };
    for (int round = 0; round < 20; ++round) {
        BodyThread victim([] { pthread_setspecific(s_key, &s_key); });
        ASSERT_TRUE(victim.start(0));
        while (victim.turns == 0)
            QzThread::yield();
        ASSERT_TRUE(victim.cancel());
#if !defined(__SANITIZE_THREAD__) // which waits for ever for a thread that just stops
        Together([] { leave(); });
        Together([] { static thread_local LeavesLate t_leaves; });
        BodyThread late([] {
            static thread_local LeavesLate t_leaves;
            QzThread::exit(0);
        });
        ASSERT_TRUE(late.start(0));
        late.join();
#endif
        for (int i = 0; i < 3; ++i)
            Together([] { EXPECT_EQ(pthread_getspecific(s_key), nullptr); });
    }
#if !defined(__SANITIZE_THREAD__) // there a victim ends as threads do, with all that destroys
    EXPECT_EQ(s_destroyed, 0);
#endif
    pthread_key_delete(s_key);
}

// A program that comes to handle the signal itself keeps it, and threads are ended all the same.
TEST(ForcedEnd, TheProgramTakesTheSignal) {
    const auto spin = [] {
        BodyThread thread([] {});
        ASSERT_TRUE(thread.start(0));
        while (thread.turns == 0)
            QzThread::yield();
        EXPECT_TRUE(thread.cancel());
    };
    spin();
    std::vector<int> taken;
    for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) {
        struct sigaction action = {};
        ASSERT_EQ(sigaction(signal, nullptr, &action), 0);
        if (action.sa_handler != SIG_DFL && ::signal(signal, [](int) {}) != SIG_ERR)
            taken.push_back(signal);
    }
    EXPECT_FALSE(taken.empty());
    spin();
    for (const int signal : taken)
        ::signal(signal, SIG_DFL);
}
