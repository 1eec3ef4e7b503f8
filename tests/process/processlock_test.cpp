// The lock between processes beside models of it, with its users killed at moments that are chosen and at others.

#include <algorithm>
#include <atomic>
#include <list>
#include <random>
#include <set>

#include "log/log_lines.h"
#include "process/processlock.h"
#include "support.h"

using namespace Qzc;
using Platform::SharedMemory;
using Opening = SharedMemory::Opening;

TEST_F(ProcessLock, GivesSlotsToTheLivingAlone) {
    SharedMemory first;
    ASSERT_EQ(first.Open(base + ".lock", {64}), Opening::Created);
    EXPECT_EQ(SharedMemory().Open(base + ".lock", {80}), Opening::Unfit);
    std::set<std::ptrdiff_t> places;
    std::list<SharedMemory> openers;
    while (places.size() < 39) {
        SharedMemory& opener = openers.emplace_back();
        ASSERT_EQ(opener.Open(base + ".lock", {64}), Opening::Opened);
        const auto* const slot = reinterpret_cast<const char*>(&opener.OwnSlot());
        ASSERT_TRUE(places.insert(slot - static_cast<const char*>(opener.View())).second);
    }
    EXPECT_EQ(first.SlotsUsed(), 40U);
    openers.clear();
    EXPECT_EQ(first.Slot(1), 0U);
    // Many that are killed leave a few slots: they are looked for when the table would grow.
    for (int i = 0; i < 70; ++i)
        EXPECT_FALSE(ChildProcess(User, {base, "nothing", "dies"}).Succeeds());
    EXPECT_LE(first.SlotsUsed(), 64U);
}

namespace {

/// What one opener of a lock knows.
struct Opener {
    QzProcess lock;
    bool open = false, valid = true;
    int reads = 0, writes = 0;
    std::uint64_t lastStamp = 0;
    bool locksToWrite = false;
    int calls = 0, expectedCalls = 0;

    Opener() {
        lock.SetCallBack([](void* self) { static_cast<Opener*>(self)->BeCalled(); }, this);
    }
    void BeCalled() { // it may lock once more
        locksToWrite ? lock.WriterLock(true) : lock.ReaderLock(true);
        calls += lock.isLocked() ? 1 : 0;
        locksToWrite ? lock.WriterUnlock() : lock.ReaderUnlock();
    }
    bool IsUsable() const { return open && valid; }
};

} // namespace

// A random sequence of operations beside a model: of several openers and now and then another process, which may be
// killed.
TEST_F(ProcessLock, BehavesAsItsModel) {
    const std::string gone = "warning  -100: a process ended while it had locked " + base + " for ";
    LogLines log;
    Opener openers[4];
    std::uint64_t stamp = 0, attached = 0;
    unsigned goneReaders = 0, goneWriters = 0; // whom nobody has missed yet
    const auto count = [&](const auto& has) { return std::count_if(std::begin(openers), std::end(openers), has); };
    const auto isOpen = [](const Opener& one) { return one.open; };
    const auto readers = [&] { return count([](const Opener& one) { return one.reads > 0; }); };
    const auto isWritten = [&] { return count([](const Opener& one) { return one.writes > 0; }) > 0; };
    const auto isFree = [&](bool toWrite) { return !isWritten() && (!toWrite || readers() == 0); };
    // Who locks misses the writer that is gone; who locks for writing the readers too, even if others still read.
    const auto missThoseThatAreGone = [&](bool toWrite) {
        if (isWritten())
            return;
        goneWriters = 0;
        goneReaders = toWrite ? 0 : goneReaders;
    };
    std::mt19937 random(11);
    for (int step = 0; step < 10000; ++step) {
        SCOPED_TRACE(step);
        Opener& one = openers[random() % 4];
        const bool writes = random() % 2 == 0;
        int& nested = writes ? one.writes : one.reads;
        const unsigned operation = random() % 16;
        const unsigned goneBefore[] = {goneReaders, goneWriters};
        log.Clear();
        if (operation < 8) { // lock
            const bool timed = random() % 2 == 0;
            const bool notify = random() % 2 == 0;
            const bool gets = one.IsUsable() && (nested > 0 || isFree(writes));
            if (one.IsUsable() && !gets && !timed)
                continue; // it would wait
            if (one.IsUsable() && nested == 0)
                missThoseThatAreGone(writes);
            const bool changed = gets && nested == 0 && one.lastStamp != stamp;
            one.locksToWrite = writes;
            const bool result = !timed   ? (writes ? one.lock.WriterLock(notify) : one.lock.ReaderLock(notify))
                                : writes ? one.lock.TimedWriterLock(0, notify)
                                         : one.lock.TimedReaderLock(0, notify);
            ASSERT_EQ(result, timed ? gets : changed);
            ASSERT_EQ(log.Has(gone + "writing: the protected data may be half written"), goneWriters < goneBefore[1]);
            ASSERT_EQ(log.Has(gone + "reading"), goneReaders < goneBefore[0]);
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
                stamp = attached = goneReaders = goneWriters = 0;
        } else if (random() % 8 == 0) {
            const bool dies = random() % 2 == 0;
            const Arguments does = {base, writes ? "write" : "read", dies ? "dies" : "ends"};
            ASSERT_EQ(ChildProcess(User, does).Succeeds(), !dies);
            if (count(isOpen) != 0) { // else nothing is left of it
                ++attached;
                missThoseThatAreGone(writes);
                stamp += writes && isFree(true) ? 1 : 0;
                (writes ? goneWriters : goneReaders) += dies && isFree(writes) ? 1 : 0;
            }
        }
        ASSERT_EQ(one.lock.isLocked(), one.reads + one.writes > 0);
        ASSERT_EQ(one.calls, one.expectedCalls);
        if (step % 16 == 0) {
            const auto reading = static_cast<std::uint64_t>(readers()) + goneReaders;
            ASSERT_EQ(Block(), (count(isOpen) == 0 ? Words() : Words{stamp, reading, attached}));
        }
    }
}

TEST_F(ProcessLock, TakesAnyNameOfBoundedLength) {
    std::list<QzProcess> locks;
    const std::string names[] = {base + "/a\\b", "../" + base, base + "%2F%s%n", base + std::string("\0\n\x7f\xff", 4),
                                 base + std::string(193 - base.size(), 'x')};
    for (const std::string& one : names)
        EXPECT_EQ(locks.emplace_back().ProcessLockInit(KeldMBString(one)), 1U) << one;
    EXPECT_EQ(QzProcess().ProcessLockInit(KeldMBString(base + "\\a/b")), 2U);
    EXPECT_EQ(QzProcess().ProcessLockInit(KeldMBString(std::string(194, 'x'))), 0U);
    // The mapping's name is held by something else.
    SharedMemory occupant;
    ASSERT_EQ(occupant.Open(base + ".lock", {8}), Opening::Created);
    EXPECT_EQ(lock.ProcessLockInit(name), 0U);
}

TEST_F(ProcessLock, ServesTheThreadsOfAProcess) {
    lock.ProcessLockInit(name);
    QzProcess writer;
    writer.ProcessLockInit(name);
    const auto read = [&] {
        for (int i = 0; i < 2000; ++i) {
            lock.ReaderLock(i % 2 == 0);
            EXPECT_TRUE(lock.isLocked());
            lock.SetCallBack([](void*) {}, nullptr);
            lock.ReaderUnlock();
        }
    };
    Together(read, read, [&] {
        for (int i = 0; i < 2000; ++i)
            const QzProcessWriterLock writing(writer, true);
    });
    EXPECT_EQ(Block(), (Words{2000, 0, 2}));
}

// ---- How long one waits for the others

TEST_F(ProcessLock, WaitsAsLongAsItIsTold) {
    QzProcess other;
    lock.ProcessLockInit(name);
    other.ProcessLockInit(name);
    other.WriterLock(false);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(lock.TimedWriterLock(1) || lock.TimedReaderLock(40));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(41));
}

static const ChildRole Reader("reader", [](const Arguments& arguments) {
    QzProcess lock;
    for (lock.ProcessLockInit(KeldMBString(arguments[0]));; lock.ReaderUnlock()) {
        lock.ReaderLock(true);
        AWhile(3);
    }
    return false;
});

TEST_F(ProcessLock, IsKeptFromNobodyForEver) {
    QzProcess writer;
    QzProcess reader;
    for (QzProcess* one : {&lock, &writer, &reader})
        one->ProcessLockInit(name);
    lock.ReaderLock(false);
    Together([&] { EXPECT_TRUE(writer.TimedWriterLock(60000)); },
             [&] {
                 AWhile();
                 EXPECT_TRUE(reader.TimedReaderLock(20000)); // beside a writer that waits
                 reader.ReaderUnlock();
                 lock.ReaderUnlock();
             });
    writer.WriterUnlock();
    ChildProcess readers[] = {ChildProcess(Reader, {base}), ChildProcess(Reader, {base}), ChildProcess(Reader, {base})};
    for (int i = 0; i < 5; ++i) {
        AWhile();
        ASSERT_TRUE(lock.TimedWriterLock(60000)); // which comes soon or, if it is broken, never
        lock.WriterUnlock();
    }
}

// ---- Processes that are killed

namespace {

/// What the lock protects in the storms. A writer makes the two values differ for a moment.
struct Protected {
    std::atomic<std::uint32_t> writer;
    std::atomic<std::uint32_t> victim; ///< the process that may have been killed as the writer
    std::atomic<std::uint64_t> first;
    std::atomic<std::uint64_t> second;
    std::atomic<std::uint64_t> faults;
    std::atomic<bool> stop;

    void Write() {
        const std::uint32_t before = writer.exchange(ProcessId());
        faults += before != 0 && before != victim;
        const std::uint64_t value = first + 1;
        first = value;
        std::this_thread::yield();
        faults += writer != ProcessId();
        second = value;
        writer = 0;
    }
    void Read() {
        const std::uint64_t values[] = {first, second};
        std::this_thread::yield();
        faults += values[0] != first || values[1] != second || values[0] - values[1] > 1;
    }
};

// Locks at random, and opens the lock anew one time in so many, until told to stop. Arguments: the lock's name, the
// protected thing's, this number, and what it is.
const ChildRole Locker("locker", [](const Arguments& arguments) {
    auto& shared = SharedObject<Protected>(arguments[1]);
    const auto openOneIn = static_cast<unsigned>(std::stoul(arguments[2]));
    std::mt19937 random(ProcessId());
    QzProcess lock;
    while (!shared.stop) {
        if (random() % openOneIn == 0)
            lock.ProcessLockRelease();
        lock.ProcessLockInit(KeldMBString(arguments[0]));
        const bool writing = random() % 2 == 0;
        writing ? lock.WriterLock(true) : lock.ReaderLock(true);
        if (!lock.isLocked())
            return false;
        writing ? shared.Write() : shared.Read();
        writing ? lock.WriterUnlock() : lock.ReaderUnlock();
        if (arguments[3] == "victim")
            shared.victim = ProcessId(); // ready to be killed
    }
    return true;
});

} // namespace

// Whoever opens it last, or first, or in between: all that they open is one object.
TEST_F(ProcessLock, OutlivesThoseThatAreKilledAtAnyMoment) {
    const ScratchDirectory scratch;
    auto& shared = SharedObject<Protected>(scratch / "shared");
    const LogLines log; // full of warnings
    const Arguments opensEachTime = {base, scratch / "shared", "1", "survivor"};
    ChildProcess survivors[] = {ChildProcess(Locker, opensEachTime), ChildProcess(Locker, opensEachTime)};
    std::mt19937 random(7);
    const unsigned kills = Often(200U);
    for (unsigned kill = 0; kill < kills; ++kill) {
        ChildProcess victim(Locker, {base, scratch / "shared", "2", "victim"});
        while (shared.victim != victim.Id())
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        victim.Kill();
        lock.ProcessLockInit(name);
        lock.WriterLock(true);
        ASSERT_TRUE(lock.isLocked()) << kill;
        ASSERT_EQ(shared.faults, 0U) << kill;
        ASSERT_LE(shared.first - shared.second, shared.writer == shared.victim ? 1U : 0U) << kill;
        shared.second = shared.first.load();
        shared.writer = 0;
        lock.ProcessLockRelease();
    }
    shared.stop = true;
    for (ChildProcess& survivor : survivors)
        EXPECT_TRUE(survivor.Succeeds());
}
