// One thread after the other is ended by force at a moment that nobody chose, in the middle of something; then another
// thread does the same thing and must come through. A hang is the fault that these tests find.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <dlfcn.h>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "support.h"
#include "toolkit/qzprocess.h"
#include "toolkit/qzthread.h"
#include "toolkit/qzthreadmanager.h"

using namespace Qzc;

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
void EndAmid(int rounds, const std::function<void()>& work) {
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

/// Whether a child of fork can do it and end well.
bool ChildCan(const std::function<void()>& work) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        work();
        _exit(0);
    }
    int status = -1;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

} // namespace

#if !defined(__SANITIZE_ADDRESS__) // its checks report the memory that a victim had just got
constexpr int Rounds = 300;

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
