#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support.h"
#include "toolkit/qzcondition.h"
#include "toolkit/qzmutex.h"
#include "toolkit/qzreadwritelock.h"
#include "toolkit/qzsemaphore.h"
#include "toolkit/qzthread.h"
#include "toolkit/qzthreadex.h"
#include "toolkit/qzthreadmanager.h"

using namespace Qzc;

namespace {

class BodyThread : public QzThread {
public:
    explicit BodyThread(std::function<int()> body) : m_body(std::move(body)) {}
    ~BodyThread() override { cancel(); }

protected:
    int run() override { return m_body(); }

private:
    std::function<int()> m_body;
};

/// Started at once; joined when the scope ends.
class Helper {
public:
    explicit Helper(std::function<void()> body) : m_thread(std::move(body)) {}
    ~Helper() { m_thread.join(); }

private:
    std::thread m_thread;
};

template <class Condition>
bool Eventually(Condition condition) {
    for (int i = 0; i < 20000 && !condition(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return condition();
}

void AWhile() {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

struct Trace {
    ~Trace() {
        if (count != nullptr)
            ++*count;
    }
    std::atomic<int>* count = nullptr;
};

long StatusOfProcess(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        long value = 0;
        if (word == name + ":" && status >> value)
            return value;
    }
    return -1;
}

auto Files() {
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return std::distance(begin(files), end(files));
}

} // namespace

TEST(Thread, RunsOnceAndClearsItsHandle) {
    QzSemaphore go(0);
    std::atomic<QzThread*> self{nullptr};
    BodyThread thread([&] {
        self = QzThread::self();
        go.Wait();
        return 42;
    });
    EXPECT_FALSE(thread.running() || thread.detach() || thread.join() || thread.cancel());
    EXPECT_FALSE(thread.priority(QzThread::Normal));
    EXPECT_EQ(thread.priority(), -1);
    EXPECT_TRUE(thread.policy(QzThread::DefaultPolicy));
    EXPECT_EQ(thread.getcallingthreadid(), 0u);
    EXPECT_FALSE(thread.start(~0ul)); // no such stack
    EXPECT_FALSE(thread.running());
    ASSERT_TRUE(thread.start(100000));
    EXPECT_TRUE(thread.running() && thread.detach());
    EXPECT_NE(thread.id(), nullptr);
    std::array<int, 2> codes = {};
    {
        Helper first([&] { EXPECT_TRUE(thread.join(codes[0])); });
        Helper second([&] { EXPECT_TRUE(thread.join(codes[1])); });
        AWhile();
        go.Post();
    }
    EXPECT_EQ(codes[0], 42);
    EXPECT_EQ(codes[1], 42);
    EXPECT_EQ(self, &thread);
    EXPECT_NE(thread.getcallingthreadid(), 0u);
    EXPECT_NE(thread.getcallingthreadid(), QzThread::GetCurrentThreadId());
    EXPECT_FALSE(thread.join());

    ASSERT_TRUE(thread.start(0)); // and nobody joins it
    go.Post();
    EXPECT_TRUE(Eventually([&] { return !thread.running(); }));
    EXPECT_FALSE(thread.join());
    EXPECT_EQ(QzThread::self(), nullptr);
}

TEST(Thread, EndsEarly) {
    std::atomic<int> unwound{0}, locals{0}, caught{0};
    const auto traced = [&](auto leave) {
        return [&, leave] {
            static thread_local Trace t_local;
            t_local.count = &locals;
            Trace onStack;
            onStack.count = &unwound;
            try {
                leave();
            } catch (const int&) {
                ++caught;
                throw;
            } catch (...) {
                ++caught;
            }
            return 1;
        };
    };
    struct Case {
        std::function<int()> body;
        int code, unwound, caught;
    };
    BodyThread* current = nullptr;
    const Case cases[] = {
        {traced([] { throw 5; }), -1, 1, 1},
        {traced([] { QzThread::exit(77); }), 77, 0, 0},
        {traced([&] { current->cancel(); }), 0, 0, 0},
        {traced([&] { EXPECT_FALSE(current->join()); }), 1, 1, 0},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(&test - cases);
        unwound = locals = caught = 0;
        QzSemaphore go(0);
        BodyThread thread([&] {
            go.Wait();
            return test.body();
        });
        current = &thread;
        ASSERT_TRUE(thread.start(0));
        int code = 0;
        {
            Helper joiner([&] { EXPECT_TRUE(thread.join(code)); });
            AWhile();
            go.Post();
        }
        EXPECT_EQ(code, test.code);
        EXPECT_EQ(unwound, test.unwound);
        EXPECT_EQ(caught, test.caught);
        EXPECT_EQ(locals, 1);
        EXPECT_FALSE(thread.running());
    }
}

// Wherever the body is, it is stopped there, and neither unwinding nor the process notices.
TEST(Thread, IsEndedByForce) {
    std::atomic<int> steps{0}, unwound{0};
    QzMutex mutex, conditionMutex;
    QzReadWriteLock written, read;
    QzSemaphore empty(0);
    QzCondition condition;
    std::atomic<bool> never{false};
    BodyThread sleeper([&] {
        empty.Wait();
        return 0;
    });
    ASSERT_TRUE(sleeper.start(0));
    mutex.lock();
    written.writeLock();
    read.readLock();
    const std::function<void()> places[] = {
        [&] {
            for (;;)
                ++steps;
        },
        [] { std::this_thread::sleep_for(std::chrono::hours(1)); },
        [&] { mutex.lock(); },
        [&] { written.readLock(); },
        [&] { read.writeLock(); },
        [&] { empty.Wait(); },
        [&] {
            conditionMutex.lock();
            condition.Wait(conditionMutex);
        },
        [&] { sleeper.join(); },
        [&] {
            while (!never)
                QzThread::yield();
        },
    };
    for (const auto& place : places) {
        for (const bool byDestructor : {false, true}) {
            SCOPED_TRACE(&place - places);
            std::atomic<bool> ready{false};
            auto thread = std::make_unique<BodyThread>([&] {
                Trace trace;
                trace.count = &unwound;
                try {
                    ready = true;
                    place();
                } catch (...) {
                    ++steps;
                }
                ++steps;
                return 1;
            });
            ASSERT_TRUE(thread->start(0));
            ASSERT_TRUE(Eventually([&] { return ready.load(); }));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            if (!byDestructor) {
                EXPECT_TRUE(thread->cancel());
                EXPECT_FALSE(thread->running() || thread->cancel());
            }
            thread.reset();
            const int before = steps;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            EXPECT_EQ(steps, before);
        }
    }
    EXPECT_EQ(unwound, 0);
    read.readUnlock();
    written.writeUnlock();
    mutex.unlock();
    sleeper.cancel();
}

TEST(Thread, EndedByForceLeavesTheHeapUsable) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the leak check rightly reports the memory that a victim had just been given";
#endif
    static std::array<void* volatile, 40> s_memory; // what the victims leave is still to be found here
    for (auto& memory : s_memory) {
        std::atomic<bool> ready{false};
        BodyThread thread([&] {
            for (unsigned int size = 1;; size = size * 5 % 99991) {
                memory = std::malloc(size % 30000);
                std::free(memory);
                ready = true;
                for (volatile int work = 0; work < 3000; work = work + 1) { // the place to be stopped at
                }
            }
            return 0;
        });
        ASSERT_TRUE(thread.start(0));
        ASSERT_TRUE(Eventually([&] { return ready.load(); }));
        EXPECT_TRUE(thread.cancel());
        Helper([] { std::vector<std::string> texts(100, std::string(1000, 'x')); });
    }
}

// The moments around a thread's end: a join, a cancel, a second join and the delete meet it in every order.
TEST(Thread, OwnershipRaces) {
    const int rounds = 1500;
    for (int round = 0; round < rounds; ++round) {
        auto thread = std::make_unique<BodyThread>([round] { return round; });
        ASSERT_TRUE(thread->start(0));
        int code = -5;
        switch (round % 5) {
        case 0: EXPECT_TRUE(!thread->join(code) || code == round); break;
        case 1: {
            Helper other([&] { thread->join(); });
            thread->join();
            break;
        }
        case 2: {
            Helper other([&] { thread->cancel(); });
            EXPECT_TRUE(!thread->join(code) || code == 0 || code == round);
            break;
        }
        case 3:
            while (thread->running())
                QzThread::yield();
            break;
        default: break;
        }
    }
}

TEST(Thread, LeavesNothingBehind) {
    const auto run = [](int count) {
        for (int i = 0; i < count; ++i) {
            BodyThread thread([] { return 0; });
            ASSERT_TRUE(thread.start(0));
            if (i % 3 == 0)
                thread.join();
            else if (i % 3 == 1)
                thread.cancel();
            else
                while (thread.running())
                    QzThread::yield();
        }
    };
    run(500);
    const long memory = StatusOfProcess("VmRSS");
    const auto files = Files();
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    run(2000); // the sanitizers keep a record of every thread, so only counts are looked at
    const long allowed = 1 << 30;
#else
    run(20000);
    const long allowed = 4096;
#endif
    EXPECT_TRUE(Eventually([] { return StatusOfProcess("Threads") <= 2; })) << StatusOfProcess("Threads");
    EXPECT_EQ(Files(), files);
    EXPECT_LT(StatusOfProcess("VmRSS"), memory + allowed);
}

TEST(Thread, Priorities) {
    QzSemaphore end(0);
    BodyThread thread([&] {
        end.Wait();
        return 0;
    });
    ASSERT_TRUE(thread.start(0));
    EXPECT_EQ(thread.priority(), QzThread::Normal);
    for (const auto value : {QzThread::BelowNormal, QzThread::Idle, QzThread::Normal, QzThread::AboveNormal,
                             QzThread::Highest, QzThread::Unknown}) {
        const auto before = thread.priority();
        const auto asked = value == QzThread::Unknown ? QzThread::Normal : value;
        const bool lowers = value == QzThread::BelowNormal || value == QzThread::Idle;
        const bool changed = thread.priority(value);
        EXPECT_TRUE(changed || !lowers); // raising may be refused
        EXPECT_EQ(thread.priority(), changed ? asked : before);
    }
    end.Post();
    thread.join();

    QzThreadManager& manager = QzThreadManager::GetInstance();
    QzThreadEx* named = manager.CreateThread(
        "slow", [](void* semaphore) { return static_cast<QzSemaphore*>(semaphore)->Wait(), 0; }, &end, 0);
    EXPECT_TRUE(named->SetPriority(QzThreadEx::Idle));
    EXPECT_EQ(named->GetPriority(), QzThreadEx::Idle);
    ASSERT_TRUE(named->Start());
    EXPECT_EQ(named->GetPriority(), QzThreadEx::Idle);
    end.Post();
    EXPECT_TRUE(named->Join());
    EXPECT_EQ(named->GetPriority(), QzThreadEx::Idle);
    manager.DestoryThread("slow");
}

TEST(Thread, Clock) {
    const auto now = [] {
        return std::uint64_t(std::chrono::system_clock::now().time_since_epoch() /
                             std::chrono::nanoseconds(1));
    };
    const std::uint64_t before = now() - 100, time = QzThread::time();
    EXPECT_TRUE(before <= time && time <= now());
    EXPECT_EQ(time % 100, 0u);
    QzThread::wakeat(static_cast<unsigned int>(QzThread::time()) + 30000000);
    EXPECT_GE(QzThread::time(), time + 29000000);
    QzThread::sleep(30000000);
    EXPECT_GE(QzThread::time(), time + 58000000);
    EXPECT_EQ(QzThread::current(), reinterpret_cast<void*>(std::uintptr_t(QzThreadEx::GetCurrentThreadId())));
}

TEST(ThreadManager, Registry) {
    QzThreadManager& manager = QzThreadManager::GetInstance();
    const auto seven = [](void* argument) {
        *static_cast<void**>(argument) = QzThread::self();
        return 7;
    };
    void* self = nullptr;
    EXPECT_EQ(manager.GetThread("any"), nullptr);
    EXPECT_EQ(manager.CreateThread("", seven, &self, 0), nullptr);
    EXPECT_EQ(manager.CreateThread("a", nullptr, &self, 0), nullptr);
    QzThreadEx* a = manager.CreateThread("Alpha", seven, &self, 0);
    QzThreadEx* b = manager.CreateThread(
        "beta", [](void*) -> int { QzThread::exit(9); }, nullptr, 0);
    EXPECT_EQ(manager.CreateThread("ALPHA", seven, &self, 0), nullptr);
    EXPECT_EQ(manager.GetThread("alphA"), a);
    EXPECT_EQ(manager.GetThread("gamma"), b); // the last one
    EXPECT_EQ(manager.GetActiveCount(), 2);
    EXPECT_EQ(manager.GetOptimalCount() % 2, 0u);
    EXPECT_GE(manager.GetOptimalCount(), 2u);
    EXPECT_EQ(a->GetName(), "Alpha");

    EXPECT_EQ(a->GetStatus(), QzThreadEx::StatusNone);
    EXPECT_FALSE(a->Join());
    EXPECT_EQ(a->GetReturnValue(), 0);
    for (int run = 0; run < 2; ++run) {
        self = nullptr;
        a->SetStackSize(run == 0 ? 0 : 300000);
        ASSERT_TRUE(a->Start());
        EXPECT_NE(a->GetID(), 0u);
        EXPECT_TRUE(a->Join() && a->Join());
        EXPECT_EQ(a->GetStatus(), QzThreadEx::StatusFinished);
        EXPECT_EQ(a->GetReturnValue(), 7);
        EXPECT_EQ(self, a);
    }
    ASSERT_TRUE(b->Start());
    EXPECT_TRUE(Eventually([&] { return b->GetStatus() == QzThreadEx::StatusNone; })); // exit took the handle

    QzThreadEx* still = manager.CreateThread(
        "259", [](void*) { return 259; }, nullptr, 0);
    ASSERT_TRUE(still->Start() && still->Join());
    EXPECT_TRUE(still->IsAlive());
    EXPECT_FALSE(still->Start());

    std::atomic<int> unwound{0};
    QzThreadEx* thrower = manager.CreateThread(
        "throws", [](void*) -> int { throw 1; }, nullptr, 0);
    QzThreadEx* spinner = manager.CreateThread(
        "spins",
        [](void* count) {
            Trace trace;
            trace.count = static_cast<std::atomic<int>*>(count);
            for (std::atomic<int> steps{0};;)
                ++steps;
            return 0;
        },
        &unwound, 1);
    QzThreadEx* suicide = manager.CreateThread(
        "destroys itself",
        [](void*) { return QzThreadManager::GetInstance().DestoryThread("destroys itself"), 0; }, nullptr, 0);
    EXPECT_TRUE(thrower->Start() && spinner->Start() && suicide->Start());
    EXPECT_FALSE(spinner->Start());
    EXPECT_TRUE(thrower->Join());
    EXPECT_EQ(thrower->GetReturnValue(), 0);
    EXPECT_TRUE(Eventually([&] { return manager.GetActiveCount() == 5; }));
    for (const char* name : {"spins", "alpha", "259", "throws", "nobody", "beta"})
        manager.DestoryThread(name);
    EXPECT_EQ(manager.GetActiveCount(), 0);
    EXPECT_EQ(unwound, 0);
}

TEST(ThreadManager, ManagedThreadsFreeThemselves) {
    QzThreadManager& manager = QzThreadManager::GetInstance();
    std::atomic<bool> done{false};
    Helper looker([&] {
        while (!done) {
            manager.GetThread("m3");
            manager.CancleManaged("not there");
            manager.GetActiveCount();
        }
    });
    Helper destroyer([&] {
        while (!done) {
            manager.DestoryThread("m5");
            QzThread::yield();
        }
    });
    std::atomic<int> ran{0};
    for (int i = 0; i < 1000; ++i) {
        const KeldMBString name(("m" + std::to_string(i % 10)).c_str());
        QzThreadEx* thread = manager.CreateThread(
            name, [](void* count) { return ++*static_cast<std::atomic<int>*>(count); }, &ran, 1);
        if (thread != nullptr && i % 10 != 5)
            thread->Start();
    }
    EXPECT_TRUE(Eventually([&] { return manager.GetActiveCount() <= 1; }));
    done = true;
    manager.DestoryThread("m5");
    EXPECT_GT(ran, 0);

    QzSemaphore end(0);
    QzThreadEx* kept = manager.CreateThread(
        "kept", [](void* semaphore) { return static_cast<QzSemaphore*>(semaphore)->Wait(), 3; }, &end, 1);
    ASSERT_TRUE(kept->Start());
    EXPECT_TRUE(manager.CancleManaged("KEPT"));
    EXPECT_FALSE(manager.CancleManaged("lost"));
    end.Post();
    EXPECT_TRUE(kept->Join());
    EXPECT_EQ(kept->GetReturnValue(), 3);
    EXPECT_EQ(manager.GetThread("kept"), kept);
    manager.DestoryThread("kept");
}

// The registry goes while threads run, end and come back to it.
TEST(ThreadManagerDeathTest, ProcessEndsBesideRunningThreads) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto leave = [] {
        for (int i = 0; i < 20; ++i) {
            const KeldMBString name(("t" + std::to_string(i)).c_str());
            const auto body = [](void*) {
                std::this_thread::sleep_for(
                    std::chrono::microseconds(QzThread::GetCurrentThreadId() % 20 * 50));
                return 0;
            };
            QzThreadManager::GetInstance().CreateThread(name, body, nullptr, i % 2 == 0)->Start();
        }
        std::exit(3); // NOLINT(concurrency-mt-unsafe): beside running threads, that is the test
    };
    EXPECT_EXIT(leave(), testing::ExitedWithCode(3), "");
}

TEST(Locks, MutexIsRecursiveAndOwned) {
    QzMutex mutex(1);
    mutex.unlock(); // nobody owns it: nothing
    mutex.lock();
    EXPECT_TRUE(mutex.trylock());
    EXPECT_FALSE(mutex.locked());
    {
        Helper([&] {
            mutex.unlock();
            EXPECT_TRUE(mutex.locked() && !mutex.trylock());
        });
    }
    mutex.unlock();
    {
        Helper([&] { EXPECT_TRUE(mutex.locked()); });
    }
    {
        QzMutexLock unlocked(mutex); // takes away the lock that was taken without it
        EXPECT_EQ(&unlocked.mutex(), &mutex);
    }
    {
        Helper([&] { EXPECT_FALSE(mutex.locked()); });
    }

    long counter = 0;
    const auto count = [&] {
        for (int i = 0; i < 20000; ++i) {
            QzMutexLock lock(mutex);
            if (i % 3 != 0 || !lock.trylock())
                lock.lock();
            ++counter;
        }
    };
    { Helper a(count), b(count), c(count); }
    EXPECT_EQ(counter, 60000);
}

TEST(Locks, ReadersFirst) {
    QzReadWriteLock lock;
    lock.readUnlock();
    lock.writeUnlock(); // nobody holds it: nothing
    lock.readLock();
    EXPECT_FALSE(lock.tryWriteLock());
    std::atomic<bool> wrote{false};
    {
        Helper writer([&] {
            lock.writeLock();
            wrote = true;
        });
        AWhile();
        EXPECT_TRUE(lock.tryReadLock()); // beside a waiting writer
        lock.readLock();
        lock.readUnlock();
        lock.readUnlock();
        AWhile();
        EXPECT_FALSE(wrote);
        {
            Helper([&] { lock.readUnlock(); });
        } // the last one, released by another thread
    }
    EXPECT_TRUE(wrote);
    EXPECT_FALSE(lock.tryReadLock() || lock.tryWriteLock());
    std::atomic<int> reading{0};
    {
        const auto read = [&] {
            lock.readLock();
            ++reading;
        };
        Helper a(read), b(read);
        AWhile();
        EXPECT_EQ(reading, 0);
        lock.writeUnlock(); // by another thread, to both readers
    }
    lock.readUnlock();
    lock.readUnlock();
    EXPECT_TRUE(lock.tryWriteLock());
    lock.writeUnlock();

    long value = 0, copy = 0;
    const auto work = [&] {
        for (int i = 0; i < 4000; ++i) {
            if (i % 8 == 0 || (i % 8 == 4 && lock.tryWriteLock())) {
                if (i % 8 == 0)
                    lock.writeLock();
                ++value, ++copy;
                lock.writeUnlock();
            } else {
                if (i % 2 == 0 || !lock.tryReadLock())
                    lock.readLock();
                EXPECT_EQ(value, copy);
                lock.readUnlock();
            }
        }
    };
    { Helper a(work), b(work), c(work); }
    EXPECT_TRUE(lock.tryWriteLock());
    EXPECT_GE(value, 1500);
}

TEST(Locks, SemaphoreCounts) {
    AssertionLog assertions;
    QzSemaphore one, negative(-3), full(0x7FFFFFFF);
    EXPECT_EQ(AssertionLog::Texts(), std::vector<std::string>{"initialCount >= 0"});
    EXPECT_TRUE(one.TryWait());
    EXPECT_FALSE(one.TryWait() || negative.TryWait());
    full.Post(); // stays at its maximum
    full.Wait();

    std::atomic<int> taken{0};
    {
        const auto take = [&] {
            for (int i = 0; i < 10000; ++i, ++taken) {
                if (i % 2 == 0 || !one.TryWait())
                    one.Wait();
            }
        };
        const auto give = [&] {
            for (int i = 0; i < 15000; ++i)
                one.Post();
        };
        Helper a(take), b(take), c(take), d(give), e(give);
    }
    EXPECT_EQ(taken, 30000);
    EXPECT_FALSE(one.TryWait());

    for (int i = 0; i < 2000; ++i) { // the waiter takes the semaphore with it while the poster still returns
        auto passing = std::make_unique<QzSemaphore>(0);
        QzSemaphore* raw = passing.get();
        Helper poster([raw] { raw->Post(); });
        passing->Wait();
        passing.reset();
    }
}

TEST(Locks, ConditionWakes) {
    QzMutex mutex;
    QzCondition condition;
    const auto in = [](unsigned int milliseconds) {
        return static_cast<unsigned int>(QzThread::time()) + milliseconds * 1000000;
    };
    mutex.lock();
    condition.signal(); // nobody waits: lost
    condition.broadcast();
    EXPECT_FALSE(condition.Wait(mutex, in(20)));
    EXPECT_FALSE(mutex.locked());
    mutex.unlock();

    int waiting = 0, woken = 0;
    const auto wait = [&] {
        QzMutexLock lock(mutex);
        lock.lock();
        ++waiting;
        EXPECT_TRUE(condition.Wait(mutex, in(4000)));
        ++woken;
    };
    const auto seen = [&](int& value) {
        QzMutexLock lock(mutex);
        lock.lock();
        return value;
    };
    {
        Helper a(wait), b(wait), c(wait);
        EXPECT_TRUE(Eventually([&] { return seen(waiting) == 3; }));
        condition.signal();
        EXPECT_TRUE(Eventually([&] { return seen(woken) == 1; }));
        AWhile();
        EXPECT_EQ(seen(woken), 1);
        condition.broadcast();
    }
    {
        Helper a(wait), b(wait);
        EXPECT_TRUE(Eventually([&] { return seen(waiting) == 5; }));
        condition.signal(); // two in a row wake two
        condition.signal();
    }
    EXPECT_EQ(woken, 5);

    int turn = 0;
    const auto play = [&](int player) {
        QzMutexLock lock(mutex);
        lock.lock();
        while (turn < 4000) {
            while (turn % 2 != player && turn < 4000)
                condition.Wait(mutex);
            ++turn;
            condition.signal();
        }
    };
    {
        Helper ping([&] { play(0); }), pong([&] { play(1); });
    }
    EXPECT_GE(turn, 4000);
}
