#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <list>
#include <memory>
#include <random>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

#include "concurrency/bodythread.h"
#include "platform/sanitizer.h"
#include "support.h"
#include "toolkit/qzcondition.h"
#include "toolkit/qzmutex.h"
#include "toolkit/qzreadwritelock.h"
#include "toolkit/qzsemaphore.h"
#include "toolkit/qzthreadex.h"
#include "toolkit/qzthreadmanager.h"

using namespace Qzc;

namespace {

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
#if UNDER_THREAD_SANITIZER || UNDER_ADDRESS_SANITIZER
    race(2000); // the sanitizers keep a record of every thread, so only counts are looked at
    const long allowed = 1 << 30;
#else
    race(Often(5000));
    const long allowed = Slowness > 1 ? 1 << 30 : 1024; // an emulator's own memory is counted, too
#endif
    EXPECT_TRUE(Eventually([] { return StatusOfProcess("Threads") <= 2; })) << StatusOfProcess("Threads");
    EXPECT_EQ(Files(), files);
    EXPECT_LT(StatusOfProcess("VmRSS"), memory + allowed);
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

// A random sequence of operations beside a plain list, with names that differ in case alone and threads that end in
// every way. The argument of each tells how.
TEST(ThreadManager, BehavesAsAListOfThreads) {
    enum { Returns = 7, Throws = 8, Exits = 9, ReturnsStillActive = 259 };
    static void* s_self = nullptr;
    static const int s_ways[] = {Returns, Throws, Exits, ReturnsStillActive};
    const auto body = [](void* way) -> int {
        s_self = QzThread::self();
        const int code = *static_cast<int*>(way);
        if (code == Exits)
            QzThread::exit(code);
        return code == Throws ? throw code : code;
    };
    struct Entry {
        std::string name;
        int way;
        bool managed;
        QzThreadEx* thread;
    };
    QzThreadManager& manager = QzThreadManager::GetInstance();
    EXPECT_EQ(manager.GetThread("any"), nullptr);
    EXPECT_EQ(manager.CreateThread("", body, nullptr, 0), nullptr);
    EXPECT_EQ(manager.CreateThread("a", nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(manager.GetOptimalCount(), 2 * std::thread::hardware_concurrency()); // the C++ library heeds affinity
    std::list<Entry> model;
    std::mt19937 random(5);
    for (int step = 0; step < 20000; ++step) {
        std::string name(1 + random() % 2, 'a');
        for (char& letter : name)
            letter = "abcABC12"[random() % 8];
        const auto found = std::find_if(model.begin(), model.end(), [&](const Entry& entry) {
            return std::equal(name.begin(), name.end(), entry.name.begin(), entry.name.end(),
                              [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
        });
        const bool exists = found != model.end();
        const unsigned operation = random() % 8;
        if (operation < 3) {
            const int* way = &s_ways[random() % std::size(s_ways)];
            const bool managed = random() % 2 == 0;
            QzThreadEx* made = manager.CreateThread(name.c_str(), body, const_cast<int*>(way), managed);
            ASSERT_EQ(made == nullptr, exists);
            if (made != nullptr) {
                ASSERT_EQ(made->GetName().View(), name);
                ASSERT_TRUE(made->GetStatus() == QzThreadEx::StatusNone && !made->Join());
                model.push_back({name, *way, managed, made});
            }
        } else if (operation == 3) {
            manager.DestoryThread(name.c_str());
            if (exists)
                model.erase(found);
        } else if (operation == 4) {
            ASSERT_EQ(manager.CancleManaged(name.c_str()), exists);
            if (exists)
                found->managed = false;
        } else if (operation == 5) {
            QzThreadEx* const last = model.empty() ? nullptr : model.back().thread;
            ASSERT_EQ(manager.GetThread(name.c_str()), exists ? found->thread : last);
        } else if (exists && step % 4 == 0 && found->managed && found->way != Exits) {
            ASSERT_TRUE(found->thread->Start());
            model.erase(found);
            ASSERT_TRUE(Eventually([&] { return manager.GetActiveCount() == static_cast<int>(model.size()); }));
        } else if (exists && step % 4 == 0) {
            QzThreadEx& thread = *found->thread;
            const bool isAlive = thread.IsAlive(); // so says the code of one that has ended
            thread.SetStackSize(step % 8 == 0 ? 300000 : 0);
            ASSERT_EQ(thread.Start(), !isAlive);
            ASSERT_NE(thread.GetID(), 0u);
            ASSERT_TRUE(found->way == Exits || (thread.Join() && thread.Join()));
            const auto status = found->way == Exits                ? QzThreadEx::StatusNone // it took the handle
                                : found->way == ReturnsStillActive ? QzThreadEx::StatusRunning
                                                                   : QzThreadEx::StatusFinished;
            ASSERT_TRUE(Eventually([&] { return thread.GetStatus() == status; }));
            ASSERT_EQ(thread.GetReturnValue(), found->way == Throws || found->way == Exits ? 0 : found->way);
            ASSERT_TRUE(s_self == &thread || isAlive);
        }
        ASSERT_EQ(manager.GetActiveCount(), static_cast<int>(model.size()));
    }
    for (const Entry& entry : model)
        manager.DestoryThread(entry.name.c_str());
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
    EXPECT_GT(ran, 0);
    const auto itself = [](void*) { return QzThreadManager::GetInstance().DestoryThread("itself"), 0; };
    EXPECT_TRUE(manager.CreateThread("itself", itself, nullptr, 0)->Start());
    EXPECT_TRUE(Eventually([&] { return manager.GetActiveCount() == 0; })); // the last one may be about to leave
}

TEST(ThreadManager, NamesAreTheSystemsToo) {
    QzThreadManager& manager = QzThreadManager::GetInstance();
    QzSemaphore end(0);
    QzThreadEx* named = manager.CreateThread("fourteen bytes\xC3\xA4", WaitFor, &end, 0);
    ASSERT_TRUE(named->Start());
    EXPECT_FALSE(named->Start());
    EXPECT_TRUE(Eventually([&] {
        std::ifstream file("/proc/self/task/" + std::to_string(named->GetID()) + "/comm");
        std::string comm;
        return std::getline(file, comm) && comm == "fourteen bytes"; // no half of a character behind it
    }));
    manager.DestoryThread("fourteen bytes\xC3\xA4"); // while it waits
}

// The registry goes while threads run, end and come back to it.
static const ChildRole LeavingProcess("leaving process", [](const Arguments&) {
    for (int i = 0; i < 20; ++i) {
        const KeldMBString name(("t" + std::to_string(i)).c_str());
        const auto body = [](void*) {
            std::this_thread::sleep_for(std::chrono::microseconds(QzThread::GetCurrentThreadId() % 20 * 50));
            return 0;
        };
        QzThreadManager::GetInstance().CreateThread(name, body, nullptr, i % 2 == 0)->Start();
    }
    return true;
});

// What the only thread has locked is locked for those that come.
static const ChildRole OnlyThread("only thread", [](const Arguments&) {
    QzMutex mutex;
    mutex.lock();
    bool isKeptOut = false;
    Together([&] { isKeptOut = !mutex.trylock(); });
    mutex.unlock();
    return isKeptOut;
});

TEST(Locks, AreTheOnlyThreadsToo) {
    EXPECT_TRUE(ChildProcess(OnlyThread).Succeeds());
}

TEST(ThreadManager, ProcessEndsBesideRunningThreads) {
    EXPECT_TRUE(ChildProcess(LeavingProcess).Succeeds());
}

// ---- Locks. What they do in every order of their steps is another test's matter.

TEST(Locks, CountWhatTheyAreGiven) {
    const auto doAtRandom = [](const std::vector<std::function<bool()>>& steps) {
        std::mt19937 random(3);
        for (int i = 0; i < 3000; ++i) {
            const auto step = random() % steps.size();
            ASSERT_TRUE(steps[step]()) << i << ": " << step;
        }
    };
    const auto takeOne = [](int& count) {
        count = std::max(count - 1, 0);
        return true;
    };
    QzMutex mutex(1);
    int depth = 0;
    doAtRandom({[&] { return mutex.lock(), ++depth > 0; }, [&] { return mutex.trylock() && ++depth > 0; },
                [&] { return mutex.unlock(), takeOne(depth); },                       // when nobody owns it: nothing
                [&] { return QzMutexLock(mutex).locked() ? false : takeOne(depth); }, // it was taken without the guard
                [&] {
                    bool right = !mutex.locked(); // by others
                    Together([&] {
                        mutex.unlock();
                        QzMutexLock lock(mutex);
                        right = right && lock.locked() == (depth != 0) && lock.trylock() == (depth == 0);
                    });
                    return right;
                }});

    QzReadWriteLock lock;
    int readers = 0, writers = 0;
    const auto readUnlock = [&] { return Together([&] { lock.readUnlock(); }), takeOne(readers); }; // by any thread
    doAtRandom({[&] { return lock.tryReadLock() ? ++readers > 0 && writers == 0 : writers == 1; },
                [&] { return lock.tryWriteLock() ? readers == 0 && writers++ == 0 : readers + writers > 0; },
                [&] { return writers == 1 || (lock.readLock(), ++readers > 0); },
                [&] { return readers + writers > 0 || (lock.writeLock(), ++writers > 0); },
                [&] { return lock.writeUnlock(), takeOne(writers); }, readUnlock, readUnlock,
                readUnlock}); // nobody holds it more often than not

    AssertionLog assertions;
    QzSemaphore one, negative(-3);
    EXPECT_EQ(AssertionLog::Texts(), std::vector<std::string>{"initialCount >= 0"});
    EXPECT_FALSE(negative.TryWait());
    int units = 1;
    doAtRandom({[&] { return one.Post(), ++units > 0; }, [&] { return units == 0 || (one.Wait(), units-- > 0); },
                [&] { return one.TryWait() ? units-- > 0 : units == 0; },
                [&] { return one.TimedWait(0) ? units-- > 0 : units == 0; }});
}

TEST(Locks, SemaphoreWaitsForATime) {
    QzSemaphore semaphore(0);
    const std::uint64_t start = QzThread::time();
    EXPECT_FALSE(semaphore.TimedWait(20));
    EXPECT_GE(QzThread::time(), start + 19000000);
    Together([&] { EXPECT_TRUE(semaphore.TimedWait(60000)); },
             [&] {
                 AWhile();
                 semaphore.Post();
             });
}

// Each keeps four threads apart, whether they sleep or not, and passes on what they have written.
TEST(Locks, KeepApart) {
    QzMutex mutex;
    QzReadWriteLock lock;
    QzSemaphore semaphore(1);
    QzCondition condition;
    bool isIn = false;
    const std::pair<std::function<void(int)>, std::function<void()>> ways[] = {
        {[&](int) { mutex.lock(); }, [&] { mutex.unlock(); }},
        {[&](int i) { i % 2 == 0 && mutex.trylock() ? void() : mutex.lock(); }, [&] { mutex.unlock(); }},
        {[&](int) { lock.writeLock(); }, [&] { lock.writeUnlock(); }},
        {[&](int i) { i % 2 == 0 && lock.tryWriteLock() ? void() : lock.writeLock(); }, [&] { lock.writeUnlock(); }},
        {[&](int) { semaphore.Wait(); }, [&] { semaphore.Post(); }},
        {[&](int i) { i % 2 == 0 && semaphore.TimedWait(1) ? void() : semaphore.Wait(); }, [&] { semaphore.Post(); }},
        {[&](int) {
             mutex.lock();
             while (isIn)
                 condition.Wait(mutex);
             isIn = true;
             mutex.unlock();
         },
         [&] {
             mutex.lock();
             isIn = false;
             condition.signal();
             mutex.unlock();
         }},
    };
    for (const auto& [enter, leave] : ways) {
        SCOPED_TRACE(&enter - &ways[0].first);
        long value = 0, copy = 0;
        const auto work = [&, &in = enter, &out = leave] {
            for (int i = 0; i < 2000; ++i) {
                in(i);
                const bool same = value == copy;
                ++value;
                if (i % 500 == 0)
                    AWhile(2); // the others fall asleep
                ++copy;
                out();
                lock.readLock();
                lock.readUnlock();
                if (!same)
                    ADD_FAILURE();
            }
        };
        Together(work, work, work, work);
        EXPECT_EQ(value, 8000);
    }
}

// Who gets a lock may take it away while the one that gave it up still returns.
TEST(Locks, GoWithTheirLastUser) {
    for (int i = 0; i < 500; ++i) {
        auto semaphore = std::make_unique<QzSemaphore>(0);
        auto mutex = std::make_unique<QzMutex>();
        std::atomic<bool> locked{false};
        std::thread giver([&, gives = mutex.get(), posts = semaphore.get()] {
            gives->lock();
            locked = true;
            gives->unlock();
            posts->Post();
        });
        while (!locked)
            QzThread::yield();
        mutex->lock();
        mutex->unlock();
        mutex.reset();
        semaphore->Wait();
        semaphore.reset();
        giver.join();
    }
}

TEST(Locks, ConditionWaits) {
    QzMutex mutex;
    QzCondition condition;
    const auto in = [](int milliseconds) {
        return static_cast<unsigned int>(QzThread::time()) + static_cast<unsigned int>(milliseconds * 1000000);
    };
    mutex.lock();
    condition.signal(); // nobody waits: lost
    condition.broadcast();
    EXPECT_FALSE(condition.Wait(mutex, in(20)));
    Together([&] { EXPECT_TRUE(mutex.locked()); }); // taken back after the wait
    int waiting = 0;
    const auto wait = [&] {
        QzMutexLock lock(mutex);
        lock.lock();
        ++waiting;
        EXPECT_TRUE(condition.Wait(mutex, in(-1))); // a deadline that has passed is a far one
        --waiting;
    };
    const auto become = [&](int expected) {
        return Eventually([&] {
            QzMutexLock lock(mutex);
            lock.lock();
            return waiting == expected;
        });
    };
    mutex.unlock();
    Together(wait, wait, wait, wait, [&] {
        EXPECT_TRUE(become(4));
        condition.signal();
        EXPECT_TRUE(become(3));
        condition.broadcast();
    });
    EXPECT_EQ(waiting, 0);
}
