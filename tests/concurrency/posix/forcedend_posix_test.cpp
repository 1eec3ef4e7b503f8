// Threads that are ended by force beside what only this system has: forks, its linker, its signals, its thread-specific
// data.

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <pthread.h>
#include <search.h>
#include <vector>

#include "childprocess.h"
#include "concurrency/forcedend.h"
#include "platform/forkhook.h"
#include "platform/sanitizer.h"
#include "platform/thread.h"

using namespace Qzc;

namespace {

[[maybe_unused]] void UseTheLinker() {
    dlsym(RTLD_DEFAULT, "no such symbol anywhere");
    dlclose(dlopen("libm.so.6", RTLD_NOW));
}

/// Whether a child of fork can do it and end well.
bool ChildCan(const Body& work) {
    return Child([&] { return work(), true; }).Succeeds();
}

} // namespace

TEST(ForcedEnd, ForkFindsAllWholeBehindIt) {
    const std::vector<Body> works = {
        UseForkHooks,
        UseTheRegistry,
        Convert,
#if !UNDER_ADDRESS_SANITIZER && !UNDER_THREAD_SANITIZER // whose own stands in the place of the system's
        UseTheLinker,
#endif
    };
    for (const Body& work : works) {
        SCOPED_TRACE(&work - works.data());
        EndAmid(work, work);
        EXPECT_TRUE(ChildCan(work));
    }
    QzThreadManager::GetInstance().DestoryThread("x");
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
#if !UNDER_THREAD_SANITIZER // which waits for ever for a thread that just stops
    Together([] { lieThere([] { Platform::ExitThread(0); }); });
    EXPECT_TRUE(ChildCan([] {}));
#endif
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
#if !UNDER_THREAD_SANITIZER // which waits for ever for a thread that just stops
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
#if !UNDER_THREAD_SANITIZER // there a victim ends as threads do, with all that destroys
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
