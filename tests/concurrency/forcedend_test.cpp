// One thread after the other is ended by force at a moment that nobody chose, in the middle of something; then another
// thread does the same thing and must come through. A hang is the fault that these tests find.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <pthread.h>
#include <search.h>
#include <vector>

#include "childprocess.h"
#include "concurrency/bodythread.h"
#include "platform/forkhook.h"
#include "platform/thread.h"
#include "platform/waitword.h"
#include "support.h"
#include "toolkit/qzcondition.h"
#include "toolkit/qzmutex.h"
#include "toolkit/qzprocess.h"
#include "toolkit/qzreadwritelock.h"
#include "toolkit/qzsemaphore.h"
#include "toolkit/qzstringw.h"
#include "toolkit/qztextcodec.h"
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
using Body = std::function<void()>;

void UseTheRegistry() {
    QzThreadManager& manager = QzThreadManager::GetInstance();
    manager.GetThread("x");
    manager.CreateThread(
        "x", [](void*) { return 0; }, nullptr, 0);
    manager.DestoryThread("x");
}

[[maybe_unused]] void UseTheLinker() {
    dlsym(RTLD_DEFAULT, "no such symbol anywhere");
    dlclose(dlopen("libm.so.6", RTLD_NOW));
}

[[maybe_unused]] void UseTheHeap() {
    static std::atomic<void*> s_memory;
    for (std::size_t size = 1; size < 200000; size = size * 3 + 11) {
        std::free(s_memory.exchange(std::malloc(size)));
        for (volatile int work = 0; work < 300; work = work + 1) { // the place to be stopped at
        }
    }
}

/// Opens many converters and converts to and fro.
void Convert() {
    for (const int number : {134, 136, 128, 129, 54936, 951, 161, 204, 238, 178, 28592, 28605, 20866, 50220, 70013}) {
        const auto charset = static_cast<KELDCharset::Charset>(number);
        QzStringW text(L"abc 123");
        text.FromString(text.ToString(charset), charset);
        QzTextCodec codec(KELDCharset::UTF8, charset); // by the converter itself, not by copying
        KeldMBString utf8;
        if (!(text == L"abc 123") || !codec.Convert(utf8, "a~") || utf8.GetAt(0) != 'a')
            std::abort();
    }
}

void UseForkHooks() {
    QzProcess lock; // tells the library to look after it in a fork
}

/// Ends threads that do it again and again, at places that nobody chose. Neither unwinding nor the process notices: the
/// next thread does it too, and so does the child of a fork. A hang is the fault.
void EndAmid(const Body& work, const Body& after) {
    std::atomic<int> steps{0}, unwound{0};
    for (int round = 0; round < Often(100); ++round) {
        std::atomic<bool> runs{false};
        BodyThread victim([&] {
            const Trace trace{unwound};
            try {
                for (runs = true;; ++steps)
                    work();
            } catch (...) { // goes on to the step
            }
            return ++steps;
        });
        ASSERT_TRUE(victim.start(0));
        while (!runs)
            QzThread::yield();
        const auto until = Clock::now() + std::chrono::microseconds(round * round * 7 % 1999);
        while (Clock::now() < until) {
        }
        ASSERT_TRUE(victim.cancel());
        ASSERT_FALSE(victim.running() || victim.cancel());
        const int before = steps;
        Together(after);
        ASSERT_EQ(steps, before);
    }
    EXPECT_EQ(unwound, 0);
}

/// Ends a thread that has done this.
void EndBehind(const Body& first) {
    std::atomic<bool> runs{false};
    BodyThread victim([&]() -> int {
        first();
        for (;; QzThread::yield())
            runs = true; // an atomic step, at which a sanitizer looks for signals
    });
    ASSERT_TRUE(victim.start(0));
    while (!runs)
        QzThread::yield();
    EXPECT_TRUE(victim.cancel());
}

/// Whether a child of fork can do it and end well.
bool ChildCan(const Body& work) {
    return Child([&] { return work(), true; }).Succeeds();
}

} // namespace

TEST(ForcedEnd, AmidWhatAllShare) {
    const std::vector<Body> works = {
        UseForkHooks,
        UseTheRegistry,
        Convert,
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // whose own stand in the place of the system's
        UseTheLinker,
        UseTheHeap,
#endif
    };
    for (const Body& work : works) {
        SCOPED_TRACE(&work - works.data());
        EndAmid(work, work);
        EXPECT_TRUE(ChildCan(work));
    }
    QzThreadManager::GetInstance().DestoryThread("x");
    EXPECT_EQ(QzThreadManager::GetInstance().GetActiveCount(), 0);
}

TEST(ForcedEnd, AmidOtherThings) {
    QzMutex mutex;
    QzCondition condition;
    QzSemaphore end(0);
    BodyThread sleeper([&] {
        end.Wait();
        return 0;
    });
    ASSERT_TRUE(sleeper.start(0));
    EndAmid([] {}, [] {});
    EndAmid([] { std::this_thread::sleep_for(std::chrono::hours(1)); }, [] {});
    EndAmid([&] { sleeper.join(); }, [] {});
    EndAmid([&] { condition.Wait(mutex); }, [&] { condition.signal(); });
}

// One that never leaves the system's code is ended there after a while.
TEST(ForcedEnd, AtLastAnywhere) {
    std::atomic<bool> runs{false};
    BodyThread victim([&] {
        const auto differs = reinterpret_cast<__compar_fn_t>(reinterpret_cast<void*>(&std::strcmp));
        std::size_t most = SIZE_MAX;
        runs = true;
        return lfind("a", "b", &most, 0, differs) != nullptr ? 1 : 2;
    });
    ASSERT_TRUE(victim.start(0));
    while (!runs)
        QzThread::yield();
    EXPECT_TRUE(victim.cancel());
}

TEST(ForcedEnd, AChildIsAnotherThread) {
    const unsigned int own = QzThread::GetCurrentThreadId();
    EXPECT_TRUE(Child([=] {
                    return QzThread::GetCurrentThreadId() != own && QzThread::GetCurrentThreadId() == ProcessId();
                }).Succeeds());
    // That of a thread which is to be ended goes on.
    static std::atomic<bool> s_runs{false};
    static auto& s_goesOn = SharedWithChildren<std::atomic<bool>>();
    const auto body = [](void*) {
        const Platform::TerminationShield shield;
        s_runs = true;
        AWhile(50); // the end is asked for
        Child([] {
            Platform::LowerShield();
            return s_goesOn = true;
        }).Succeeds();
        return 0;
    };
    Platform::Thread* doomed = Platform::NewThread(body, nullptr, 0, Platform::ThreadPriority::Other);
    ASSERT_TRUE(Platform::StartThread(*doomed));
    while (!s_runs)
        QzThread::yield();
    EXPECT_TRUE(Platform::TerminateThread(*doomed, 0));
    Platform::CloseThread(doomed);
    EXPECT_TRUE(s_goesOn);
}

// A fork while other threads hold the library's locks leaves none of them shut in the child.
TEST(ForcedEnd, ForkFindsAllWhole) {
    for (const auto work : {UseTheRegistry, Convert}) {
        std::atomic<bool> done{false};
        const auto use = [&] {
            while (!done)
                work();
        };
        Together(use, use, [&] {
            for (int i = 0; i < Often(80); ++i)
                EXPECT_TRUE(ChildCan(work));
            done = true;
        });
    }
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
        EndBehind([] { pthread_setspecific(s_key, &s_key); });
#if !defined(__SANITIZE_THREAD__) // which waits for ever for a thread that just stops
        Together([] { leave(); });
        Together([] { static thread_local LeavesLate t_leaves; });
        BodyThread late([]() -> int {
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
    EndBehind([] {});
    std::vector<int> taken;
    for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) {
        struct sigaction action = {};
        ASSERT_EQ(sigaction(signal, nullptr, &action), 0);
        if (action.sa_handler != SIG_DFL && ::signal(signal, [](int) {}) != SIG_ERR)
            taken.push_back(signal);
    }
    EXPECT_FALSE(taken.empty());
    EndBehind([] {});
    for (const int signal : taken)
        ::signal(signal, SIG_DFL);
}
