// Threads that are ended by force beside what only this system has: forks, its linker, its thread-specific data.

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <pthread.h>
#include <vector>

#include "childprocess.h"
#include "concurrency/forcedend.h"
#include "platform/forkhook.h"
#include "platform/thread.h"

using namespace Qzc;

namespace {

void UseTheLinker() {
    static_cast<void>(dlsym(RTLD_DEFAULT, "no such symbol anywhere"));
    dlclose(dlopen("libm.so.6", RTLD_NOW));
}

/// Whether a child of fork can do it and end well.
bool ChildCan(const Body& work) {
    return Child([&] { return work(), true; }).Succeeds();
}

/// Ends a thread that has done this.
[[maybe_unused]] void EndBehind(const Body& first) {
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

} // namespace

TEST(ForcedEnd, ForkFindsAllWholeBehindIt) {
    std::vector<Body> works = SharedWorks();
    if (!UNDER_ADDRESS_SANITIZER && !UNDER_THREAD_SANITIZER)
        works.emplace_back(UseTheLinker);
    for (const Body& work : works) {
        SCOPED_TRACE(&work - works.data());
        EndAmid(work, work);
        EXPECT_TRUE(ChildCan(work));
    }
    QzThreadManager::GetInstance().DestoryThread("x");
}

// A fork while other threads hold the library's locks leaves none of them shut in the child, which is another thread.
TEST(ForcedEnd, ForkFindsAllWhole) {
    const unsigned int own = QzThread::GetCurrentThreadId();
    EXPECT_TRUE(Child([=] { return QzThread::GetCurrentThreadId() != own; }).Succeeds());
    if (!HeapIsWholeInChildren)
        GTEST_SKIP() << "the rest takes memory in children";
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
    static const auto lieThere = [](bool forEver) {
        Platform::ForkHook hook = {[](void*) { _exit(9); }, nullptr};
        Platform::AddForkHook(hook, Platform::ForkHold());
        s_added = true;
        std::this_thread::sleep_for(std::chrono::hours(forEver ? 1 : 0));
        Platform::ExitThread(0);
    };
    for (bool forEver : {true, false}) {
        const auto body = [](void* does) { return lieThere(*static_cast<bool*>(does)), 0; };
        Platform::Thread* thread = Platform::NewThread(body, &forEver, 0, Platform::ThreadPriority::Other);
        ASSERT_TRUE(Platform::StartThread(*thread));
        while (!s_added)
            QzThread::yield();
        EXPECT_FALSE(forEver && ChildCan([] {})); // the hook is there
        EXPECT_TRUE(forEver ? Platform::TerminateThread(*thread, 0) : Platform::WaitForThread(*thread));
        Platform::CloseThread(thread);
        EXPECT_TRUE(ChildCan([] {}));
    }
#if !UNDER_THREAD_SANITIZER // which waits for ever for a thread that just stops
    Together([] { lieThere(false); });
    EXPECT_TRUE(ChildCan([] {}));
#endif
}

#if !UNDER_THREAD_SANITIZER // there a victim ends as threads do, with all that destroys
// The next threads get the stacks of those that vanished, and nothing of what these kept there.
TEST(ForcedEnd, LeavesNothingToTheNextThread) {
    static pthread_key_t s_key;
    static std::atomic<int> s_destroyed{0};
    ASSERT_EQ(pthread_key_create(&s_key, [](void*) { ++s_destroyed; }), 0);
    for (int round = 0; round < 20; ++round) {
        EndBehind([] { pthread_setspecific(s_key, &s_key); });
        Together([] {
            pthread_setspecific(s_key, &s_key);
            QzThread::exit(0);
        });
        for (int i = 0; i < 3; ++i)
            Together([] { EXPECT_EQ(pthread_getspecific(s_key), nullptr); });
    }
    EXPECT_EQ(s_destroyed, 0);
    pthread_key_delete(s_key);
}
#endif
