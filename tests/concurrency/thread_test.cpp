#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "platform/condition.h"
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

template <class Condition>
bool Eventually(Condition condition) {
    for (int i = 0; i < 20000 && !condition(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return condition();
}

void AWhile(int milliseconds = 20) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

struct Trace {
    ~Trace() { ++ended; }
    std::atomic<int>& ended;
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

int WaitFor(void* semaphore) {
    static_cast<QzSemaphore*>(semaphore)->Wait();
    return 3;
}

} // namespace

TEST(Thread, EndsInManyWays) {
    EXPECT_EQ(QzThread::self(), nullptr);
    BodyThread* current = nullptr;
    struct Case {
        std::function<int()> leave;
        int code, unwound;
    };
    const Case cases[] = {
        {[&] { return QzThread::self() == current && !current->join() ? 42 : 0; }, 42, 1},
        {[]() -> int { throw 5; }, -1, 1},
        {[]() -> int { QzThread::exit(77); }, 77, 0},
        {[&]() -> int { return current->cancel(); }, 0, 0},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(&test - cases);
        QzSemaphore go(0);
        std::atomic<int> unwound{0}, locals{0};
        BodyThread thread([&] {
            thread_local const Trace t_local{locals};
            const Trace onStack{unwound};
            go.Wait();
            try {
                return test.leave();
            } catch (const int&) {
                throw;
            } catch (...) { // must see nothing of an end without unwinding
                return -2;
            }
        });
        EXPECT_FALSE(thread.running() || thread.detach() || thread.join() || thread.cancel());
        EXPECT_FALSE(thread.start(~0ul)); // no such stack
        EXPECT_EQ(thread.id(), nullptr);
        current = &thread;
        ASSERT_TRUE(thread.start(100000));
        EXPECT_TRUE(thread.running() && thread.detach());
        std::array<int, 2> codes = {};
        Together([&] { EXPECT_TRUE(thread.join(codes[0])); }, [&] { EXPECT_TRUE(thread.join(codes[1])); },
                 [&] {
                     AWhile();
                     go.Post();
                 });
        EXPECT_EQ(codes, (std::array<int, 2>{test.code, test.code}));
        EXPECT_EQ(unwound, test.unwound);
        EXPECT_EQ(locals, 1);
        EXPECT_FALSE(thread.running() || thread.join());
        EXPECT_NE(thread.getcallingthreadid(), 0u);
        EXPECT_NE(thread.getcallingthreadid(), QzThread::GetCurrentThreadId());
    }
}

// Wherever the body is, it is stopped there; neither unwinding nor the process nor its heap notices.
TEST(Thread, IsEndedByForce) {
    std::atomic<int> steps{0}, unwound{0};
    QzMutex mutex, conditionMutex;
    QzReadWriteLock written, read;
    QzSemaphore empty(0);
    QzCondition condition;
    BodyThread sleeper([&] { return WaitFor(&empty); });
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
#if !defined(__SANITIZE_ADDRESS__) // the leak check rightly reports the memory that a victim had just got
        [] {
            static void* volatile s_memory;
            for (unsigned int size = 1;; size = size * 5 % 99991) {
                s_memory = std::malloc(size % 30000);
                std::free(s_memory);
                for (volatile int work = 0; work < 3000; work = work + 1) { // the place to be stopped at
                }
            }
        },
#endif
    };
    for (std::size_t round = 0; round < 40 * std::size(places); ++round) {
        const auto& place = places[round % std::size(places)];
        SCOPED_TRACE(&place - places);
        std::atomic<bool> ready{false};
        BodyThread thread([&] {
            const Trace trace{unwound};
            try {
                ready = true;
                place();
            } catch (...) { // goes on to the step
            }
            return ++steps;
        });
        ASSERT_TRUE(thread.start(0));
        ASSERT_TRUE(Eventually([&] { return ready.load(); }));
        AWhile(2);
        EXPECT_TRUE(thread.cancel());
        EXPECT_FALSE(thread.running() || thread.cancel());
        const int before = steps;
        Together([] { std::vector<std::string> texts(100, std::string(1000, 'x')); });
        EXPECT_EQ(steps, before);
    }
    EXPECT_EQ(unwound, 0);
    sleeper.cancel();
}

// A join, a cancel, a second join and the delete meet a thread's end in every order, and nothing of it stays.
TEST(Thread, OwnershipRacesLeaveNothingBehind) {
    const auto race = [](int rounds) {
        for (int round = 0; round < rounds; ++round) {
            BodyThread thread([round] { return round; });
            ASSERT_TRUE(thread.start(0));
            int code = -5;
            switch (round % 5) {
            case 0: EXPECT_TRUE(!thread.join(code) || code == round); break;
            case 1: Together([&] { thread.join(); }, [&] { thread.join(); }); break;
            case 2:
                Together([&] { thread.cancel(); },
                         [&] { EXPECT_TRUE(!thread.join(code) || code == 0 || code == round); });
                break;
            case 3:
                while (thread.running())
                    QzThread::yield();
                EXPECT_FALSE(thread.join()); // nobody came in time
                break;
            default: break;
            }
        }
    };
    race(500);
    const long memory = StatusOfProcess("VmRSS");
    const auto files = Files();
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    race(2000); // the sanitizers keep a record of every thread, so only counts are looked at
    const long allowed = 1 << 30;
#else
    race(20000);
    const long allowed = 4096;
#endif
    EXPECT_TRUE(Eventually([] { return StatusOfProcess("Threads") <= 2; })) << StatusOfProcess("Threads");
    EXPECT_EQ(Files(), files);
    EXPECT_LT(StatusOfProcess("VmRSS"), memory + allowed);
}

TEST(Thread, Priorities) {
    QzSemaphore end(0);
    BodyThread thread([&] { return WaitFor(&end); });
    EXPECT_FALSE(thread.priority(QzThread::Normal));
    EXPECT_EQ(thread.priority(), -1);
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
}

// What a program that runs under nice sees: priorities are relative to it.
TEST(ThreadDeathTest, PrioritiesAreRelative) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto check = [] {
        const int own = nice(5); // from 0 to 15 at most, where the surroundings are not nicer still
        const auto niceOf = [](unsigned int id) { return getpriority(PRIO_PROCESS, id); };
        QzThreadManager& manager = QzThreadManager::GetInstance();
        QzSemaphore end(0);
        QzThreadEx* thread = manager.CreateThread("plain", WaitFor, &end, 0);
        bool right = thread->Start() && Eventually([&] { return niceOf(thread->GetID()) == own; }) &&
                     thread->GetPriority() == QzThreadEx::Normal;
        right = thread->SetPriority(QzThreadEx::BelowNormal) && right;
        const int below = niceOf(thread->GetID());
        right = right && thread->GetPriority() == QzThreadEx::BelowNormal && (own == 19 || below > own) &&
                (own != 5 || below == 12);
        right = thread->SetPriority(QzThreadEx::Idle) && right && niceOf(thread->GetID()) == 19 &&
                thread->GetPriority() == QzThreadEx::Idle;
        end.Post();
        thread->Join();
        std::exit(right ? 7 : 8); // NOLINT(concurrency-mt-unsafe)
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(7), "");
}

TEST(Thread, Clock) {
    using namespace std::chrono;
    const std::uint64_t time = QzThread::time();
    const auto age = system_clock::now().time_since_epoch() - nanoseconds(time);
    EXPECT_TRUE(age >= age.zero() && age < minutes(1));
    EXPECT_EQ(time % 100, 0u);
    QzThread::wakeat(static_cast<unsigned int>(time) + 30000000);
    EXPECT_GE(QzThread::time(), time + 29000000);
    QzThread::sleep(30000000);
    EXPECT_GE(QzThread::time(), time + 58000000);
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
    EXPECT_EQ(a->GetName(), "Alpha");
    const auto processors = std::thread::hardware_concurrency(); // what the C++ library makes of the affinity
    EXPECT_EQ(manager.GetOptimalCount(), 2 * processors);

    EXPECT_EQ(a->GetStatus(), QzThreadEx::StatusNone);
    EXPECT_FALSE(a->Join());
    for (const unsigned int stackSize : {0U, 300000U}) {
        self = nullptr;
        a->SetStackSize(stackSize);
        ASSERT_TRUE(a->Start());
        EXPECT_NE(a->GetID(), 0u);
        EXPECT_TRUE(a->Join() && a->Join());
        EXPECT_EQ(a->GetStatus(), QzThreadEx::StatusFinished);
        EXPECT_EQ(a->GetReturnValue(), 7);
        EXPECT_EQ(self, a);
    }
    ASSERT_TRUE(b->Start());
    EXPECT_TRUE(Eventually([&] { return b->GetStatus() == QzThreadEx::StatusNone; })); // exit took the handle

    const auto started = [&](const char* name, int (*body)(void*)) {
        QzThreadEx* thread = manager.CreateThread(name, body, nullptr, 0);
        EXPECT_TRUE(thread->Start());
        return thread;
    };
    QzThreadEx* still = started("259", [](void*) { return 259; });
    EXPECT_TRUE(still->Join());
    EXPECT_TRUE(still->IsAlive()); // so says its code
    EXPECT_FALSE(still->Start());
    QzThreadEx* thrower = started("throws", [](void*) -> int { throw 1; });
    EXPECT_TRUE(thrower->Join());
    EXPECT_EQ(thrower->GetReturnValue(), 0);
    QzThreadEx* spinner = started("spins", [](void*) {
        for (std::atomic<int> steps{0};;)
            ++steps;
        return 0;
    });
    EXPECT_FALSE(spinner->Start());
    started("itself", [](void*) { return QzThreadManager::GetInstance().DestoryThread("itself"), 0; });
    EXPECT_TRUE(Eventually([&] { return manager.GetActiveCount() == 5; }));
    for (const char* name : {"spins", "alpha", "259", "throws", "nobody", "beta"})
        manager.DestoryThread(name);
    EXPECT_EQ(manager.GetActiveCount(), 0);
}

TEST(ThreadManager, ManagedThreadsFreeThemselves) {
    QzThreadManager& manager = QzThreadManager::GetInstance();
    std::atomic<bool> done{false};
    std::atomic<int> ran{0};
    const auto meddle = [&] {
        while (!done) {
            manager.GetThread("m3");
            manager.CancleManaged("not there");
            manager.DestoryThread("m5");
            QzThread::yield();
        }
    };
    Together(meddle, meddle, [&] {
        for (int i = 0; i < 1000; ++i) {
            const KeldMBString name(("m" + std::to_string(i % 10)).c_str());
            QzThreadEx* thread = manager.CreateThread(
                name, [](void* count) { return ++*static_cast<std::atomic<int>*>(count); }, &ran, 1);
            if (thread != nullptr && i % 10 != 5)
                thread->Start();
        }
        EXPECT_TRUE(Eventually([&] { return manager.GetActiveCount() <= 1; }));
        done = true;
    });
    manager.DestoryThread("m5");
    EXPECT_TRUE(Eventually([&] { return manager.GetActiveCount() == 0; })); // the last one may be about to leave
    EXPECT_GT(ran, 0);

    QzSemaphore end(0);
    QzThreadEx* kept = manager.CreateThread("kept", WaitFor, &end, 1);
    EXPECT_TRUE(kept->SetPriority(QzThreadEx::Idle)); // for later
    ASSERT_TRUE(kept->Start());
    EXPECT_EQ(kept->GetPriority(), QzThreadEx::Idle);
    EXPECT_TRUE(manager.CancleManaged("KEPT"));
    EXPECT_FALSE(manager.CancleManaged("lost"));
    end.Post();
    EXPECT_TRUE(kept->Join());
    EXPECT_EQ(kept->GetReturnValue(), 3);
    EXPECT_EQ(manager.GetThread("kept"), kept);
    manager.DestoryThread("kept");
}

// A random sequence of operations beside a plain list, with names that differ in case and charset.
TEST(ThreadManager, BehavesAsAListOfNames) {
    QzThreadManager& manager = QzThreadManager::GetInstance();
    const auto folded = [](std::string name) {
        std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
        return name;
    };
    std::vector<std::pair<std::string, QzThreadEx*>> model;
    std::mt19937 random(5);
    for (int step = 0; step < 20000; ++step) {
        std::string name(1 + random() % 2, 'a');
        for (char& letter : name)
            letter = "abcABC12"[random() % 8];
        const auto found =
            std::find_if(model.begin(), model.end(), [&](const auto& entry) { return entry.first == folded(name); });
        switch (random() % 4) {
        case 0:
        case 1: {
            QzThreadEx* made = manager.CreateThread(name.c_str(), WaitFor, nullptr, 0);
            ASSERT_EQ(made == nullptr, found != model.end());
            if (made != nullptr)
                model.emplace_back(folded(name), made);
            break;
        }
        case 2:
            manager.DestoryThread(name.c_str());
            if (found != model.end())
                model.erase(found);
            break;
        default:
            ASSERT_EQ(manager.GetThread(name.c_str()), found != model.end() ? found->second
                                                       : model.empty()      ? nullptr
                                                                            : model.back().second);
        }
        ASSERT_EQ(manager.GetActiveCount(), static_cast<int>(model.size()));
    }
    while (!model.empty()) {
        manager.DestoryThread(model.back().first.c_str());
        model.pop_back();
    }
    QzSemaphore end(0);
    QzThreadEx* named = manager.CreateThread("fourteen bytes\xC3\xA4", WaitFor, &end, 0);
    named->Start();
    EXPECT_TRUE(Eventually([&] {
        std::ifstream file("/proc/self/task/" + std::to_string(named->GetID()) + "/comm");
        std::string comm;
        return std::getline(file, comm) && comm == "fourteen bytes"; // no half of a character behind it
    }));
    end.Post();
    named->Join();
    manager.DestoryThread("fourteen bytes\xC3\xA4");
}

// The registry goes while threads run, end and come back to it.
TEST(ThreadManagerDeathTest, ProcessEndsBesideRunningThreads) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto leave = [] {
        for (int i = 0; i < 20; ++i) {
            const KeldMBString name(("t" + std::to_string(i)).c_str());
            const auto body = [](void*) {
                std::this_thread::sleep_for(std::chrono::microseconds(QzThread::GetCurrentThreadId() % 20 * 50));
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
    Together([&] {
        mutex.unlock();
        EXPECT_TRUE(mutex.locked() && !mutex.trylock());
    });
    mutex.unlock();
    Together([&] { EXPECT_TRUE(mutex.locked()); });
    {
        QzMutexLock unlocked(mutex); // takes away the lock that was taken without it
        EXPECT_EQ(&unlocked.mutex(), &mutex);
    }
    Together([&] { EXPECT_FALSE(mutex.locked()); });

    long counter = 0;
    const auto count = [&] {
        for (int i = 0; i < 20000; ++i) {
            QzMutexLock lock(mutex);
            if (i % 3 != 0 || !lock.trylock())
                lock.lock();
            ++counter;
        }
    };
    Together(count, count, count);
    EXPECT_EQ(counter, 60000);
}

TEST(Locks, ReadersFirst) {
    QzReadWriteLock lock;
    lock.readUnlock();
    lock.writeUnlock(); // nobody holds it: nothing
    lock.readLock();
    EXPECT_FALSE(lock.tryWriteLock());
    std::atomic<bool> wrote{false};
    const auto write = [&] {
        lock.writeLock();
        wrote = true;
    };
    Together(write, [&] {
        AWhile();
        EXPECT_TRUE(lock.tryReadLock()); // beside a waiting writer
        lock.readLock();
        lock.readUnlock();
        lock.readUnlock();
        AWhile();
        EXPECT_FALSE(wrote);
        lock.readUnlock(); // the last one, by another thread than the first
    });
    EXPECT_FALSE(lock.tryReadLock() || lock.tryWriteLock());
    std::atomic<int> reading{0};
    const auto read = [&] {
        lock.readLock();
        ++reading;
    };
    Together(read, read, [&] {
        AWhile();
        EXPECT_EQ(reading, 0);
        lock.readUnlock();  // nobody reads yet: nothing
        lock.writeUnlock(); // by another thread, to both readers
    });
    lock.readUnlock();
    EXPECT_FALSE(lock.tryWriteLock()); // the other one still reads
    lock.readUnlock();

    long value = 0, copy = 0;
    const auto work = [&] {
        for (int i = 0; i < 4000; ++i) {
            if (i % 4 == 0) {
                if (i % 8 == 0 || !lock.tryWriteLock())
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
    Together(work, work, work);
    EXPECT_TRUE(lock.tryWriteLock());
    EXPECT_EQ(value, 3000);
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
    Together(take, take, take, give, give);
    EXPECT_EQ(taken, 30000);
    EXPECT_FALSE(one.TryWait());

    for (int i = 0; i < 2000; ++i) { // the waiter takes the semaphore with it while the poster still returns
        auto passing = std::make_unique<QzSemaphore>(0);
        std::thread poster([raw = passing.get()] { raw->Post(); });
        passing->Wait();
        passing.reset();
        poster.join();
    }
}

// Each of several sleepers wakes the next, though it cannot know of it.
TEST(Locks, AllSleepersPass) {
    for (int round = 0; round < 10; ++round) {
        QzMutex mutex;
        QzReadWriteLock lock;
        lock.writeLock();
        const auto pass = [&] {
            mutex.lock();
            mutex.unlock();
            lock.writeLock();
            lock.writeUnlock();
        };
        Together(
            pass, pass, pass, pass,
            [&] {
                mutex.lock();
                AWhile(5);
                mutex.unlock();
            },
            [&] {
                AWhile(10);
                lock.writeUnlock();
            });
    }
}

TEST(Locks, SemaphoreWaitsForATime) {
    QzSemaphore semaphore(1);
    EXPECT_TRUE(semaphore.TimedWait(0));
    EXPECT_FALSE(semaphore.TimedWait(0));
    const std::uint64_t start = QzThread::time();
    EXPECT_FALSE(semaphore.TimedWait(20));
    EXPECT_GE(QzThread::time(), start + 19000000);
    Together([&] { EXPECT_TRUE(semaphore.TimedWait(60000)); },
             [&] {
                 AWhile();
                 semaphore.Post();
             });
    // Who gives up takes no unit with it, and nobody who waits is forgotten for it.
    std::atomic<int> taken{0};
    const auto take = [&] {
        while (taken < 3000) {
            if (semaphore.TimedWait(taken % 2 == 0 ? 0 : 1))
                ++taken;
        }
    };
    Together(take, take, [&] {
        for (int i = 0; i < 3000; ++i) {
            semaphore.Post();
            if (i % 50 == 0)
                AWhile(1);
        }
    });
    EXPECT_EQ(taken, 3000);
    EXPECT_FALSE(semaphore.TryWait());
}

// Two waiters and a signal between them, step by step: it is the first one's, though the second gives up first.
TEST(Locks, ALaterWaiterTakesNoSignal) {
    Platform::Condition condition;
    const auto before = condition.Enter();
    condition.Signal();
    const auto after = condition.Enter();
    EXPECT_FALSE(condition.Wait(after, 0));
    EXPECT_TRUE(condition.Wait(before, 0));
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
    Together([&] { EXPECT_TRUE(mutex.locked()); }); // taken back after the wait
    mutex.unlock();

    int waiting = 0, woken = 0;
    const auto wait = [&] {
        QzMutexLock lock(mutex);
        lock.lock();
        ++waiting;
        EXPECT_TRUE(condition.Wait(mutex, in(4000)));
        ++woken;
    };
    const auto become = [&](int& value, int expected) {
        return Eventually([&] {
            QzMutexLock lock(mutex);
            lock.lock();
            return value == expected;
        });
    };
    Together(wait, wait, wait, wait, wait, [&] {
        EXPECT_TRUE(become(waiting, 5));
        condition.signal();
        EXPECT_TRUE(become(woken, 1));
        condition.signal(); // two in a row wake two
        condition.signal();
        EXPECT_TRUE(become(woken, 3));
        AWhile();
        EXPECT_TRUE(become(woken, 3)); // and no more
        condition.broadcast();
    });
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
    Together([&] { play(0); }, [&] { play(1); });
    EXPECT_GE(turn, 4000);
}
