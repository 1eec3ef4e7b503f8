#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <list>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "concurrency/bodythread.h"
#include "support.h"
#include "toolkit/qzcondition.h"
#include "toolkit/qzmutex.h"
#include "toolkit/qzreadwritelock.h"
#include "toolkit/qzsemaphore.h"
#include "toolkit/qzthreadex.h"
#include "toolkit/qzthreadmanager.h"

using namespace Qzc;

namespace {

std::atomic<int> s_localsEnded{0};

/// A thread_local object's memory may be gone when its destructor comes (docs/platforms.md), so this has none.
struct Local {
    ~Local() { ++s_localsEnded; }
};

} // namespace

TEST(Thread, EndsInManyWays) {
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
        std::atomic<int> unwound{0}, joining{0};
        s_localsEnded = 0;
        BodyThread thread([&] {
            thread_local const Local t_local;
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
        EXPECT_FALSE(thread.running() || thread.join() || thread.cancel());
        if (sizeof(unsigned long) >= sizeof(void*)) { // else a stack of that size may be had
            EXPECT_FALSE(thread.start(~0ul));
        }
        current = &thread;
        ASSERT_TRUE(thread.start(1));
        EXPECT_TRUE(thread.running() && thread.detach());
        for (const auto priority : {QzThread::BelowNormal, QzThread::Idle})
            EXPECT_TRUE(thread.priority(priority) && thread.priority() == priority);
        std::array<int, 2> codes = {};
        const auto join = [&](int& code) {
            ++joining;
            EXPECT_TRUE(thread.join(code));
        };
        Together([&] { join(codes[0]); }, [&] { join(codes[1]); },
                 [&] {
                     EXPECT_TRUE(Eventually([&] { return joining == 2; }));
                     AWhile();
                     go.Post();
                 });
        EXPECT_EQ(codes, (std::array<int, 2>{test.code, test.code}));
        EXPECT_EQ(unwound, test.unwound);
        EXPECT_EQ(s_localsEnded, 1);
        EXPECT_FALSE(thread.running() || thread.join());
    }
}

// A join, a cancel, a second join and the delete meet a thread's end in every order.
TEST(Thread, BelongsToWhoComesFirst) {
    for (int round = 0; round < Often(5000); ++round) {
        BodyThread thread([round] { return round; });
        ASSERT_TRUE(thread.start(0));
        int code = -5;
        switch (round % 5) {
        case 0: EXPECT_TRUE(!thread.join(code) || code == round); break;
        case 1: Together([&] { thread.join(); }, [&] { thread.join(); }); break;
        case 2:
            Together([&] { thread.cancel(); }, [&] { EXPECT_TRUE(!thread.join(code) || code == 0 || code == round); });
            break;
        case 3:
            while (thread.running())
                QzThread::yield();
            EXPECT_FALSE(thread.join()); // nobody came in time
        }
    }
}

// A random sequence of operations beside a plain list, with names that differ in case alone and threads that end in
// every way. The argument of each tells how.
TEST(ThreadManager, BehavesAsAListOfThreads) {
    enum { Returns = 7, Throws = 8, Exits = 9 };
    static const int s_ways[] = {Returns, Throws, Exits};
    const auto body = [](void* way) -> int {
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
                ASSERT_TRUE(made->GetName() == name.c_str() && !made->Join());
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
            ASSERT_TRUE(thread.Start() && thread.GetID() != 0);
            ASSERT_TRUE(found->way == Exits || (thread.Join() && thread.Join()));
            const auto status = found->way == Exits ? QzThreadEx::StatusNone : QzThreadEx::StatusFinished;
            ASSERT_TRUE(Eventually([&] { return thread.GetStatus() == status; })); // the exit took the handle
            ASSERT_EQ(thread.GetReturnValue(), found->way == Throws || found->way == Exits ? 0 : found->way);
        }
        ASSERT_EQ(manager.GetActiveCount(), static_cast<int>(model.size()));
    }
    for (const Entry& entry : model)
        manager.DestoryThread(entry.name.c_str());
    EXPECT_EQ(manager.GetActiveCount(), 0);
}

TEST(ThreadManager, ManagedThreadsFreeThemselves) {
    QzThreadManager& manager = QzThreadManager::GetInstance();
    const auto name = [](int number) {
        return KeldMBString("a name too long for the system " + std::to_string(number));
    };
    std::atomic<bool> done{false};
    const auto meddle = [&] {
        while (!done) {
            manager.GetThread(name(3));
            manager.DestoryThread(name(5));
            QzThread::yield();
        }
    };
    Together(meddle, meddle, [&] {
        for (int i = 0; i < 1000; ++i) {
            const auto body = [](void*) { return 0; };
            QzThreadEx* thread = manager.CreateThread(name(i % 10), body, nullptr, 1);
            if (thread != nullptr && i % 10 != 5)
                thread->Start();
        }
        EXPECT_TRUE(Eventually([&] { return manager.GetActiveCount() <= 1; }));
        done = true;
    });
    manager.DestoryThread(name(5));
    const auto itself = [](void*) { return QzThreadManager::GetInstance().DestoryThread("itself"), 0; };
    EXPECT_TRUE(manager.CreateThread("itself", itself, nullptr, 0)->Start());
    EXPECT_TRUE(Eventually([&] { return manager.GetActiveCount() == 0; })); // the last one may be about to leave
}

// The registry goes while threads run, end and come back to it.
static const ChildRole LeavingProcess("leaving process", [](const Arguments&) {
    const auto body = [](void*) {
        std::this_thread::sleep_for(std::chrono::microseconds(QzThread::GetCurrentThreadId() % 20 * 50));
        return 0;
    };
    for (int i = 0; i < 20; ++i)
        QzThreadManager::GetInstance()
            .CreateThread(KeldMBString("t" + std::to_string(i)), body, nullptr, i % 2 == 0)
            ->Start();
    return true;
});

TEST(ThreadManager, ProcessEndsBesideRunningThreads) {
    EXPECT_TRUE(ChildProcess(LeavingProcess).Succeeds());
}

// ---- Locks. What they do in every order of their steps is another test's matter.

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

// Each keeps four threads apart, whether they sleep or not, and passes on what they have written.
TEST(Locks, KeepApart) {
    QzMutex mutex;
    QzReadWriteLock lock;
    QzSemaphore semaphore(1);
    QzCondition condition;
    bool isIn = false;
    const auto expectKeptApart = [&](auto enter, auto leave) {
        long value = 0, copy = 0;
        const auto work = [&] {
            for (int i = 0; i < 2000; ++i) {
                enter(i % 2 == 0);
                const bool same = value == copy;
                ++value;
                if (i % 500 == 0)
                    AWhile(2); // the others fall asleep
                ++copy;
                EXPECT_TRUE(same);
                leave();
                mutex.unlock(); // another's, or nobody's: nothing
                lock.readLock();
                lock.readUnlock();
            }
        };
        Together(work, work, work, work);
        EXPECT_EQ(value, 8000);
    };
    const auto lockMutex = [&](bool tries) {
        if (!tries || !mutex.trylock())
            mutex.lock();
        EXPECT_TRUE(mutex.trylock() && !mutex.locked()); // by others
        mutex.unlock();
    };
    const auto lockToWrite = [&](bool tries) {
        if (!tries || !lock.tryWriteLock())
            lock.writeLock();
        EXPECT_FALSE(lock.tryReadLock() || lock.tryWriteLock());
    };
    const auto takeUnit = [&](bool tries) {
        if (!tries || !semaphore.TimedWait(1))
            semaphore.Wait();
        EXPECT_FALSE(semaphore.TryWait());
    };
    expectKeptApart(lockMutex, [&] { mutex.unlock(); });
    expectKeptApart(lockToWrite, [&] { lock.writeUnlock(); });
    expectKeptApart(takeUnit, [&] { semaphore.Post(); });
    const auto takeTurn = [&](bool) {
        mutex.lock();
        while (isIn)
            condition.Wait(mutex);
        isIn = true;
        mutex.unlock();
    };
    expectKeptApart(takeTurn, [&] {
        mutex.lock();
        isIn = false;
        condition.signal();
        mutex.unlock();
    });
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

TEST(Locks, WaitForATime) {
    QzMutex mutex;
    QzCondition condition;
    const auto in = [](int milliseconds) {
        return static_cast<unsigned int>(QzThread::time()) + static_cast<unsigned int>(milliseconds * 1000000);
    };
    const std::uint64_t start = QzThread::time();
    EXPECT_LT(std::chrono::system_clock::now().time_since_epoch() - std::chrono::nanoseconds(start),
              std::chrono::minutes(1));
    QzThread::sleep(20000000);
    EXPECT_FALSE(QzSemaphore(0).TimedWait(20));
    mutex.lock();
    condition.signal(); // nobody waits: lost
    EXPECT_FALSE(condition.Wait(mutex, in(20)));
    EXPECT_GE(QzThread::time(), start + 57000000);
    Together([&] { EXPECT_TRUE(mutex.locked()); }); // taken back after the wait
    std::thread waker([&] {
        mutex.lock();
        condition.broadcast();
        mutex.unlock();
    });
    EXPECT_TRUE(condition.Wait(mutex, in(-1))); // a deadline that has passed is a far one
    mutex.unlock();
    waker.join();
}
