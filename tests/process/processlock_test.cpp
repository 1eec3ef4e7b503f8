#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <list>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <sys/ptrace.h>
#include <sys/resource.h>

#include "log/log_lines.h"
#include "process/processlock.h"
#include "system/system.h"
#include "toolkit/qzprocessreaderlock.h"
#include "toolkit/qzprocesswriterlock.h"

using namespace Qzc;
using Platform::SharedMemory;
using Opening = SharedMemory::Opening;

// ---- The named objects

TEST(NamedObject, LivesFromTheFirstOpenerToTheLast) {
    SharedMemory first;
    SharedMemory second;
    const SharedMemory::Options options = {8};
    const auto text = [&] { return std::string(static_cast<char*>(second.View()), 8); };
    ASSERT_EQ(first.Open("life", options), Opening::Created);
    std::memcpy(first.View(), "abcdefgh", 8);
    ASSERT_EQ(second.Open("life", options), Opening::Opened);
    first.Close();
    EXPECT_EQ(text(), "abcdefgh");
    second.Close();
    ASSERT_EQ(second.Open("life", options), Opening::Created);
    EXPECT_EQ(text(), std::string(8, '\0'));

    SharedMemory other;
    EXPECT_EQ(other.Open("life", {16}), Opening::Unfit);
    EXPECT_EQ(other.Open("", {8}), Opening::Failed);
    using std::filesystem::perms;
    const auto file = Directory() / "life";
    EXPECT_EQ(std::filesystem::status(Directory()).permissions(), perms::owner_all);
    EXPECT_EQ(std::filesystem::status(file).permissions(), perms::owner_read | perms::owner_write);
    second.Close();
    EXPECT_FALSE(std::filesystem::exists(file));
    // Somebody's link must not lead elsewhere.
    std::filesystem::create_directory(Directory());
    std::filesystem::create_symlink("/dev/null", file);
    EXPECT_EQ(other.Open("life", {8}), Opening::Failed);
    std::filesystem::remove(file);
    std::filesystem::remove(Directory());
}

TEST(NamedObject, GivesSlotsToTheLivingAlone) {
    SharedMemory first;
    ASSERT_EQ(first.Open("slots", {8}), Opening::Created);
    constexpr std::uint32_t Openers = 40;
    std::set<const void*> places;
    std::list<SharedMemory> openers;
    for (std::uint32_t i = 1; i < Openers; ++i) {
        EXPECT_EQ(openers.emplace_back().Open("slots", {8}), Opening::Opened);
        places.insert(reinterpret_cast<char*>(&openers.back().OwnSlot()) - static_cast<char*>(openers.back().View()) +
                      static_cast<const char*>(first.View()));
    }
    places.insert(&first.OwnSlot());
    EXPECT_EQ(places.size(), Openers);
    for (std::uint32_t i = 0; i < Openers; ++i)
        EXPECT_EQ(places.count(&first.Slot(i)), 1U);
    EXPECT_EQ(first.SlotsUsed(), Openers);
    openers.clear();
    EXPECT_EQ(first.Slot(1), 0U);
    // A hundred that are killed leave a few slots: they are looked for when the table would grow.
    for (int i = 0; i < 100; ++i) {
        Child child([] {
            SharedMemory own;
            return own.Open("slots", {8}) == Opening::Opened && raise(SIGKILL) == 0;
        });
        EXPECT_FALSE(child.Succeeds());
    }
    EXPECT_LE(first.SlotsUsed(), 64U);
}

// ---- Openers
namespace {

/// What one opener of a lock knows.
struct Opener {
    QzProcess lock;
    bool open = false, valid = true;
    int reads = 0, writes = 0;
    std::uint64_t lastStamp = 0;
    int calls = 0, expectedCalls = 0;

    Opener() {
        lock.SetCallBack([](void* count) { ++*static_cast<int*>(count); }, &calls);
    }
    bool IsUsable() const { return open && valid; }
};

} // namespace

// A random sequence of operations, of several openers and now and then another process, beside a model.
TEST_F(ProcessLock, BehavesAsItsModel) {
    Opener openers[4];
    std::uint64_t stamp = 0, attached = 0;
    const auto count = [&](const auto& has) { return std::count_if(std::begin(openers), std::end(openers), has); };
    const auto isOpen = [](const Opener& one) { return one.open; };
    const auto readers = [&] { return count([](const Opener& one) { return one.reads > 0; }); };
    const auto isFree = [&](bool toWrite) {
        return count([](const Opener& one) { return one.writes > 0; }) + (toWrite ? readers() : 0) == 0;
    };
    EXPECT_EQ(lock.ProcessLockInit(KeldMBString()), 0U);
    EXPECT_EQ(lock.WaitForValidSignal(nullptr), 0xFFFFFFFFUL);
    std::mt19937 random(11);
    for (int step = 0; step < 10000; ++step) {
        SCOPED_TRACE(step);
        Opener& one = openers[random() % 4];
        const bool writes = random() % 2 == 0;
        int& nested = writes ? one.writes : one.reads;
        const unsigned operation = random() % 16;
        if (operation < 8) { // lock
            const bool timed = random() % 2 == 0;
            const bool notify = random() % 2 == 0;
            const bool gets = one.IsUsable() && (nested > 0 || isFree(writes));
            if (one.IsUsable() && !gets && !timed)
                continue; // it would wait
            const bool changed = gets && nested == 0 && one.lastStamp != stamp;
            const bool result = !timed   ? (writes ? one.lock.WriterLock(notify) : one.lock.ReaderLock(notify))
                                : writes ? one.lock.TimedWriterLock(0, notify)
                                         : one.lock.TimedReaderLock(0, notify);
            ASSERT_EQ(result, timed ? gets : changed);
            one.expectedCalls += changed && notify ? 1 : 0;
            if (gets && nested++ == 0)
                one.lastStamp = writes ? ++stamp : stamp;
        } else if (operation < 12) { // unlock; when it is not locked: nothing
            writes ? one.lock.WriterUnlock() : one.lock.ReaderUnlock();
            if (one.IsUsable() && nested > 0)
                --nested;
        } else if (operation == 12) {
            one.valid = random() % 3 != 0;
            one.lock.SetIsValied(one.valid);
        } else if (operation == 13) {
            ASSERT_EQ(one.lock.ProcessLockInit(name), one.open ? 0 : ++attached);
            if (!one.open)
                one.lastStamp = stamp;
            one.open = true;
        } else if (operation == 14 && random() % 4 == 0) {
            one.lock.ProcessLockRelease(); // gives the lock back
            one.open = false;
            one.reads = one.writes = 0;
            if (count(isOpen) == 0)
                stamp = attached = 0;
        } else if (random() % 20 == 0 && count(isOpen) > 0) {
            const bool gets = isFree(true);
            Child child([&, next = ++attached] {
                QzProcess own;
                return own.ProcessLockInit(name) == next && own.TimedWriterLock(0) == gets;
            });
            ASSERT_TRUE(child.Succeeds());
            stamp += gets ? 1 : 0;
        }
        ASSERT_EQ(one.lock.isLocked(), one.reads + one.writes > 0);
        ASSERT_EQ(one.calls, one.expectedCalls);
        if (step % 16 == 0) {
            ASSERT_EQ(Block(), (count(isOpen) == 0 ? Words() : Words{stamp, std::uint64_t(readers()), attached}));
        }
    }
}

TEST_F(ProcessLock, TakesAnyNameOfBoundedLength) {
    const std::string names[] = {
        base + "/a\\b",
        "../" + base,
        base + "%2F%s%n",
        base + std::string("\0\n\x7f\xff", 4),
        base + " \xe5\x9b\xbe\xe5\xb1\x82",
        base + std::string(193 - base.size() - 2 * 5, 'x'), // five blanks take two bytes more each
    };
    std::list<QzProcess> locks;
    for (const std::string& one : names)
        EXPECT_EQ(locks.emplace_back().ProcessLockInit(KeldMBString(one)), 1U) << one;
    EXPECT_EQ(QzProcess().ProcessLockInit(KeldMBString(base + "\\a/b")), 2U);

    const LogLines log;
    const std::string longName(194, 'x');
    EXPECT_EQ(QzProcess().ProcessLockInit(KeldMBString(longName)), 0U);
    EXPECT_TRUE(log.Has("error  -100: create file Semaphore " + longName + " Faile"));
    // The mapping's name is held by something else.
    SharedMemory occupant;
    ASSERT_EQ(occupant.Open(base + ".lock", {8}), Opening::Created);
    EXPECT_EQ(lock.ProcessLockInit(name), 0U);
    EXPECT_TRUE(log.Has("error  -100: create file mapping " + base + " Faile"));
    occupant.Close();
    EXPECT_EQ(lock.ProcessLockInit(name), 1U);
}

TEST_F(ProcessLock, ServesTheThreadsOfAProcess) {
    lock.ProcessLockInit(name);
    QzProcess writer;
    writer.ProcessLockInit(name);
    std::atomic<std::uint64_t> changes{0};
    const auto read = [&] {
        for (int i = 0; i < 2000; ++i) {
            changes += lock.ReaderLock(i % 2 == 0);
            EXPECT_TRUE(lock.isLocked());
            lock.SetCallBack([](void*) {}, &changes);
            lock.ReaderUnlock();
        }
    };
    std::thread first(read);
    std::thread second(read);
    for (int i = 0; i < 2000; ++i)
        const QzProcessWriterLock writing(writer, true);
    first.join();
    second.join();
    EXPECT_LE(changes, 2000U);
    EXPECT_EQ(Block(), (Words{2000, 0, 2}));
}

// ---- Processes that are killed

TEST_F(ProcessLock, GoesOnWhenAHolderIsKilled) {
    lock.ProcessLockInit(name);
    LogLines log;
    const std::string gone = "warning  -100: a process ended while it had locked " + base;
    const std::string halfWritten = gone + " for writing: the protected data may be half written";
    KillAfter([](QzProcess& own) { own.WriterLock(false); });
    EXPECT_TRUE(lock.ReaderLock(false));
    EXPECT_TRUE(log.Has(halfWritten));

    // While this process reads, another one that reads is killed.
    log.Clear();
    KillAfter([](QzProcess& own) { own.ReaderLock(false); });
    lock.ReaderUnlock();
    EXPECT_EQ(Block()[1], 1U); // nobody has needed to know
    lock.WriterLock(false);
    EXPECT_TRUE(lock.isLocked());
    EXPECT_TRUE(log.Has(gone + " for reading"));
    EXPECT_FALSE(log.Has(halfWritten));
    EXPECT_EQ(Block()[1], 0U);
    lock.WriterUnlock();

    // In the guard: the callback runs there.
    log.Clear();
    KillAfter([&](QzProcess& own) {
        own.SetCallBack([](void*) { raise(SIGKILL); }, nullptr);
        { const QzProcessWriterLock inherited(lock, false); }
        own.ReaderLock(true);
        _exit(0);
    });
    lock.ReaderLock(false);
    EXPECT_TRUE(lock.isLocked());
    EXPECT_TRUE(log.Has(gone + " for reading"));
    EXPECT_EQ(Block()[1], 1U);
    lock.ReaderUnlock();
    lock.WriterLock(false);
    EXPECT_TRUE(lock.isLocked());
}

TEST_F(ProcessLock, IsAsNewWhenTheLastIsKilled) {
    LogLines log;
    for (const bool writing : {false, true}) {
        KillAfter([&](QzProcess& own) {
            { const QzProcessWriterLock before(own, false); }
            writing ? own.WriterLock(false) : own.ReaderLock(false);
        });
        EXPECT_EQ(lock.ProcessLockInit(name), 1U);
        EXPECT_EQ(Block(), (Words{0, 0, 1}));
        EXPECT_FALSE(lock.WriterLock(true));
        EXPECT_TRUE(lock.isLocked());
        EXPECT_TRUE(log.IsEmpty());
        lock.ProcessLockRelease();
    }
    KillAfter([](QzProcess&) {});
    EXPECT_FALSE(std::filesystem::is_empty(Directory()));
    const std::string program = InFrontOfPrograms() + std::filesystem::read_symlink("/proc/self/exe").string();
    ASSERT_EQ(std::system((program + " --gtest_filter=NamedObject.Lives* >/dev/null").c_str()), 0);
    // TearDown sees that any program's first opening takes the rest away.
}

namespace {

/// What the lock protects in the storms. A writer makes the two values differ for a moment.
struct Protected {
    std::atomic<int> writer{0};
    std::atomic<int> victim{0}; ///< the process that may have been killed as the writer
    std::atomic<std::uint64_t> first{0};
    std::atomic<std::uint64_t> second{0};
    std::atomic<std::uint64_t> faults{0};
    std::atomic<std::uint64_t> rounds{0};
    std::atomic<bool> stop{false};

    void Write(int self) {
        const int before = writer.exchange(self);
        faults += before != 0 && before != victim;
        const std::uint64_t value = first + 1;
        first = value;
        std::this_thread::yield();
        faults += writer != self;
        second = value;
        writer = 0;
    }
    void Read() {
        const std::uint64_t values[] = {first, second};
        std::this_thread::yield();
        faults += values[0] != first || values[1] != second || values[0] - values[1] > 1;
    }
};

/// Locks at random, and opens the lock anew one time in so many, until told to stop or for so many rounds.
bool LockAtRandom(const KeldMBString& name, Protected& shared, unsigned seed, int rounds, unsigned openOneIn) {
    std::mt19937 random(seed);
    QzProcess lock;
    for (int i = 0; i < rounds && !shared.stop; ++i) {
        if (random() % openOneIn == 0)
            lock.ProcessLockRelease();
        lock.ProcessLockInit(name);
        const bool writing = random() % 2 == 0;
        writing ? lock.WriterLock(true) : lock.ReaderLock(true);
        if (!lock.isLocked())
            return false;
        writing ? shared.Write(getpid()) : shared.Read();
        writing ? lock.WriterUnlock() : lock.ReaderUnlock();
        ++shared.rounds;
    }
    return true;
}

} // namespace

TEST_F(ProcessLock, SurvivesKillsAtAnyMoment) {
    constexpr unsigned Kills = 300;
    Protected& shared = SharedWithChildren<Protected>();
    const auto locker = [&](unsigned seed) {
        return [&, seed] { return LockAtRandom(name, shared, seed, 1 << 30, 8); };
    };
    const LogLines log; // full of warnings
    lock.ProcessLockInit(name);
    Child survivor(locker(1));
    std::mt19937 random(7);
    for (unsigned kill = 0; kill < Kills; ++kill) {
        Child victim(locker(100 + kill));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        shared.victim = victim.Id();
        victim.Kill();
        lock.WriterLock(true);
        ASSERT_TRUE(lock.isLocked()) << kill;
        ASSERT_EQ(shared.faults, 0U) << kill;
        const std::uint64_t half = shared.first - shared.second;
        ASSERT_LE(half, shared.writer == shared.victim ? 1U : 0U) << kill;
        shared.second = shared.first.load();
        shared.writer = 0;
        lock.WriterUnlock();
    }
    shared.stop = true;
    EXPECT_TRUE(survivor.Succeeds());
    EXPECT_GT(shared.rounds, Kills);
    lock.WriterLock(false); // waits for the last readers that are gone
    EXPECT_EQ(Block()[1], 0U);
}

TEST_F(ProcessLock, SurvivesAKillBetweenAnyTwoInstructions) {
    if (!InFrontOfPrograms().empty())
        GTEST_SKIP() << "an emulator traces no process";
    auto& done = SharedWithChildren<std::atomic<bool>>();
    constexpr int Budget = 60000; // of single steps: some take long, and sanitizers make many of one
    using Round = std::function<void(QzProcess&)>;
    const Round lockAndUnlock = [](QzProcess& own) {
        { const QzProcessReaderLock reading(own, true); }
        { const QzProcessWriterLock writing(own, true); }
    };
    const Round closeAndOpen = [&](QzProcess& own) {
        own.ProcessLockRelease();
        own.ProcessLockInit(name);
    };
    lock.ProcessLockInit(name);
    // Lets a child do so many instructions of one round, all of them if it comes to the end, and kills it.
    const auto killAfter = [&](const Round& round, int steps) {
        done = false;
        Child child([&] {
            QzProcess own;
            own.ProcessLockInit(name);
            round(own); // the linker's work is done by then
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            raise(SIGSTOP);
            round(own);
            done = true;
            return pause() == 0;
        });
        int status = 0;
        waitpid(child.Id(), &status, 0);
        int made = 0;
        for (; WIFSTOPPED(status) && made < steps && !done; ++made) {
            ptrace(PTRACE_SINGLESTEP, child.Id(), nullptr, nullptr);
            waitpid(child.Id(), &status, 0);
        }
        return made;
    };
    const LogLines log; // some warnings
    for (const Round& round : {lockAndUnlock, closeAndOpen}) {
        const int all = killAfter(round, Budget);
        ASSERT_GT(all, 100);
        const int kills = std::min(150, 2 * Budget / all);
        for (int i = 0; i < kills; ++i) {
            const int steps = killAfter(round, all * i / kills);
            lock.WriterLock(true);
            ASSERT_TRUE(lock.isLocked()) << steps;
            lock.WriterUnlock();
            lock.ReaderLock(true);
            ASSERT_TRUE(lock.isLocked()) << steps;
            ASSERT_EQ(Block()[1], 1U) << steps;
            lock.ReaderUnlock();
            ASSERT_EQ(Block()[1], 0U) << steps;
        }
    }
    EXPECT_FALSE(log.IsEmpty());
}

TEST_F(ProcessLock, IsOneObjectInAStormOfOpeners) {
    constexpr int Rounds = 2000;
    Protected& shared = SharedWithChildren<Protected>();
    const LogLines log;
    const auto opener = [&] { return LockAtRandom(name, shared, unsigned(getpid()), Rounds, 1); };
    Child children[] = {Child(opener), Child(opener), Child(opener)};
    for (Child& child : children)
        EXPECT_TRUE(child.Succeeds());
    EXPECT_EQ(shared.faults, 0U);
    EXPECT_EQ(shared.rounds, 3U * Rounds);
    EXPECT_EQ(shared.first, shared.second);
    EXPECT_TRUE(log.IsEmpty());
}

// ---- Inheritance

TEST_F(ProcessLock, GoesToAChildThatHoldsNothing) {
    lock.ProcessLockInit(name);
    // While one thread is inside the object and another has the lock, a third one forks.
    QzProcess other;
    other.ProcessLockInit(name);
    other.WriterLock(false);
    std::thread inside([&] { const QzProcessReaderLock reading(lock, false); });
    AWhile();
    auto& unlocked = SharedWithChildren<std::atomic<bool>>();
    Child child([&] {
        other.WriterUnlock(); // the parent's
        const bool holdsNothing = !lock.isLocked() && !other.isLocked();
        const bool changed = lock.ReaderLock(false); // as soon as the parent has unlocked
        return holdsNothing && changed && unlocked && Block()[2] == 2;
    });
    AWhile();
    EXPECT_TRUE(other.isLocked());
    unlocked = true;
    other.WriterUnlock();
    inside.join();
    EXPECT_TRUE(child.Succeeds());
    EXPECT_FALSE(lock.WriterLock(false)); // despite the child that ended as a reader
    EXPECT_TRUE(lock.isLocked());
}

TEST_F(ProcessLock, OutlivesTheParentOfTheLast) {
    auto& result = SharedWithChildren<std::atomic<int>>();
    KillAfter([&](QzProcess& own) {
        own.WriterLock(false);
        Child orphan([&] {
            own.WriterLock(false);
            const bool locked = own.isLocked();
            own.ProcessLockRelease();
            result = locked ? 1 : -1;
            return true;
        });
        raise(SIGKILL);
    });
    EXPECT_TRUE(Eventually([&] { return result == 1; }));
}

TEST_F(ProcessLock, DoesNothingInAChildThatGetsNoMoreFiles) {
    lock.ProcessLockInit(name);
    rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    const rlimit none = {0, files.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    Child child([&] {
        lock.WriterLock(false);
        return !lock.isLocked() && lock.ProcessLockInit(name) == 0;
    });
    setrlimit(RLIMIT_NOFILE, &files);
    EXPECT_TRUE(child.Succeeds());
}
