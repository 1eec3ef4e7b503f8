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
#include <tuple>
#include <vector>

#include <sys/ptrace.h>
#include <sys/resource.h>

#include "log/log_lines.h"
#include "process/processlock.h"
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

// ---- One process

TEST_F(ProcessLock, CountsItsOpenersFromOneInEveryLife) {
    EXPECT_EQ(lock.ProcessLockInit(KeldMBString()), 0U);
    EXPECT_FALSE(lock.ReaderLock(true));
    EXPECT_FALSE(lock.isLocked());
    ASSERT_EQ(lock.ProcessLockInit(name), 1U);
    EXPECT_EQ(lock.ProcessLockInit(name), 0U);
    EXPECT_TRUE(Child([&] { return QzProcess().ProcessLockInit(name) == 2; }).Succeeds());
    lock.WriterLock(false);
    EXPECT_EQ(QzProcess().ProcessLockInit(name), 3U);
    EXPECT_EQ(Block(), (Words{1, 0, 3}));
    lock.ProcessLockRelease(); // gives the lock back
    EXPECT_FALSE(lock.isLocked());
    lock.ProcessLockRelease();
    EXPECT_EQ(Block(), Words());
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

TEST_F(ProcessLock, NestsWithinItsProcess) {
    for (int i = 0; i < 2; ++i) {
        lock.ReaderUnlock(); // not open, then not locked: nothing happens, the lock works on
        lock.WriterUnlock();
        lock.ProcessLockInit(name);
    }
    {
        const QzProcessReaderLock outer(lock, true);
        const QzProcessReaderLock inner(lock, true);
        EXPECT_EQ(Block(), (Words{0, 1, 1}));
    }
    EXPECT_EQ(Block(), (Words{0, 0, 1}));
    {
        const QzProcessWriterLock outer(lock, true);
        const QzProcessWriterLock inner(lock, true);
        EXPECT_EQ(Block(), (Words{1, 0, 1}));
    }
    lock.ReaderLock(false);
    lock.ReaderLock(false);
    lock.ReaderUnlock();
    EXPECT_TRUE(lock.isLocked());
    lock.SetIsValied(false);
    lock.ReaderUnlock();
    EXPECT_FALSE(lock.ReaderLock(true) || lock.WriterLock(true));
    EXPECT_EQ(Block(), (Words{1, 1, 1}));
    lock.SetIsValied(true);
    lock.ReaderUnlock();
    EXPECT_FALSE(lock.isLocked());
    EXPECT_EQ(Block(), (Words{1, 0, 1}));
    EXPECT_EQ(lock.WaitForValidSignal(nullptr), 0xFFFFFFFFUL);
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

// ---- Several processes

TEST_F(ProcessLock, ReportsEachChangeOnceToEveryOpener) {
    int calls[2] = {};
    QzProcess openers[2];
    for (const int i : {0, 1}) {
        openers[i].SetCallBack([](void* count) { ++*static_cast<int*>(count); }, &calls[i]);
        openers[i].ProcessLockInit(name);
        EXPECT_FALSE(openers[i].ReaderLock(true));
        openers[i].ReaderUnlock();
    }
    using Step = std::tuple<bool, bool, int>;
    for (const auto& [writes, notify, expected] : {Step(false, true, 1), Step(false, false, 1), Step(true, true, 2)}) {
        Child writer([&] {
            QzProcess own;
            own.ProcessLockInit(name);
            const bool first = own.WriterLock(true);
            own.WriterUnlock();
            const bool second = own.WriterLock(true);
            own.WriterUnlock();
            return !first && !second;
        });
        EXPECT_TRUE(writer.Succeeds());
        for (const int i : {0, 1}) {
            QzProcess& opener = openers[i];
            EXPECT_TRUE(writes ? opener.WriterLock(notify) : opener.ReaderLock(notify));
            writes ? opener.WriterUnlock() : opener.ReaderUnlock();
            EXPECT_FALSE(opener.ReaderLock(true));
            opener.ReaderUnlock();
            EXPECT_EQ(calls[i], expected);
        }
    }
    EXPECT_EQ(Block(), (Words{8, 0, 5}));
}

TEST_F(ProcessLock, ReadersOverlapAndAWriterWaitsForAll) {
    auto& written = SharedWithChildren<std::atomic<bool>>();
    lock.ProcessLockInit(name);
    lock.ReaderLock(false);
    Child writer([&] {
        const QzProcessWriterLock writing(lock, false);
        written = true;
        return lock.isLocked();
    });
    Child reader([&] {
        const QzProcessReaderLock reading(lock, false);
        return lock.isLocked() && Block() == Words{0, 2, 1};
    });
    EXPECT_TRUE(reader.Succeeds());
    AWhile();
    EXPECT_FALSE(written);
    lock.ReaderUnlock();
    EXPECT_TRUE(writer.Succeeds());
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
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
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
