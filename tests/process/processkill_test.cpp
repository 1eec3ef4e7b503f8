// Processes that are killed, at moments that are chosen and at others.

#include <algorithm>
#include <atomic>
#include <random>

#include <csignal>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include "log/log_lines.h"
#include "process/processlock.h"

using namespace Qzc;

using ProcessLockKill = ProcessLock;

// The callback runs in the guard.
TEST_F(ProcessLockKill, InTheGuard) {
    lock.ProcessLockInit(name);
    const LogLines log;
    const Arguments does = {base, "die when called back", "change it by another object", "read"};
    EXPECT_FALSE(ChildProcess(Holder, does).Succeeds());
    lock.ReaderLock(false);
    EXPECT_TRUE(lock.isLocked());
    EXPECT_TRUE(log.Has("warning  -100: a process ended while it had locked " + base + " for reading"));
    EXPECT_EQ(Block()[1], 1U);
    lock.ReaderUnlock();
    EXPECT_TRUE(TakesToWrite());
}

TEST_F(ProcessLockKill, WhileItWaits) {
    lock.ProcessLockInit(name);
    const LogLines log;
    for (int i = 0; i < 10; ++i) {
        lock.ReaderLock(false);
        ChildProcess writer(Holder, {base, "write"});
        QzProcessState state;
        while (QzProcess::GetState(name, state) && state.m_openers.GetSize() < 2)
            AWhile(1);
        AWhile(2 * i);
        writer.Kill();
        lock.ReaderUnlock();
        ASSERT_TRUE(lock.TimedWriterLock(60000));
        lock.WriterUnlock();
    }
    EXPECT_TRUE(log.IsEmpty()); // it had written nothing
}

// The next one finds it as new.
TEST_F(ProcessLockKill, AsTheLast) {
    const LogLines log;
    for (const char* last : {"read", "write"}) {
        EXPECT_FALSE(ChildProcess(Holder, {base, "change it by another object", last, "die"}).Succeeds());
        EXPECT_EQ(lock.ProcessLockInit(name), 1U);
        EXPECT_EQ(Block(), (Words{0, 0, 1}));
        EXPECT_TRUE(lock.TimedWriterLock(0) && log.IsEmpty());
        lock.ProcessLockRelease();
    }
    // TearDown sees that any program's first opening takes away what is left.
    EXPECT_FALSE(ChildProcess(Holder, {base, "die"}).Succeeds());
    EXPECT_FALSE(std::filesystem::is_empty(Directory()));
    EXPECT_TRUE(ChildProcess(Holder, {base + " other"}).Succeeds());
}

namespace {

/// What the lock protects in the storms. A writer makes the two values differ for a moment.
struct Protected {
    std::atomic<std::uint32_t> writer;
    std::atomic<std::uint32_t> victim; ///< the process that may have been killed as the writer
    std::atomic<std::uint64_t> first;
    std::atomic<std::uint64_t> second;
    std::atomic<std::uint64_t> faults;
    std::atomic<std::uint64_t> rounds;
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

// Locks at random, and opens the lock anew one time in so many, until told to stop or for so many rounds. Arguments:
// the lock's name, the protected thing's, these two numbers, and whether it is a victim.
const ChildRole Locker("locker", [](const Arguments& arguments) {
    auto& shared = SharedObject<Protected>(arguments[1]);
    const int rounds = std::stoi(arguments[2]);
    const auto openOneIn = static_cast<unsigned>(std::stoul(arguments[3]));
    std::mt19937 random(ProcessId());
    QzProcess lock;
    for (int i = 0; i < rounds && !shared.stop; ++i) {
        if (random() % openOneIn == 0)
            lock.ProcessLockRelease();
        lock.ProcessLockInit(KeldMBString(arguments[0]));
        const bool writing = random() % 2 == 0;
        writing ? lock.WriterLock(true) : lock.ReaderLock(true);
        if (!lock.isLocked())
            return false;
        writing ? shared.Write() : shared.Read();
        writing ? lock.WriterUnlock() : lock.ReaderUnlock();
        ++shared.rounds;
        if (arguments.size() > 4)
            shared.victim = ProcessId(); // ready to be killed
    }
    return true;
});

} // namespace

TEST_F(ProcessLockKill, AtAnyMoment) {
    const ScratchDirectory scratch;
    auto& shared = SharedObject<Protected>(scratch / "shared");
    const Arguments locksForEver = {base, scratch / "shared", "1000000000", "8"};
    Arguments isAVictim = locksForEver;
    isAVictim.push_back("victim");
    const LogLines log; // full of warnings
    lock.ProcessLockInit(name);
    ChildProcess survivor(Locker, locksForEver);
    std::mt19937 random(7);
    const unsigned kills = Often(200U);
    for (unsigned kill = 0; kill < kills; ++kill) {
        ChildProcess victim(Locker, isAVictim);
        while (shared.victim != victim.Id())
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        victim.Kill();
        lock.WriterLock(true);
        ASSERT_TRUE(lock.isLocked()) << kill;
        ASSERT_EQ(shared.faults, 0U) << kill;
        ASSERT_LE(shared.first - shared.second, shared.writer == shared.victim ? 1U : 0U) << kill;
        shared.second = shared.first.load();
        shared.writer = 0;
        lock.WriterUnlock();
    }
    shared.stop = true;
    EXPECT_TRUE(survivor.Succeeds());
    EXPECT_GT(shared.rounds, kills);
    lock.WriterLock(false); // waits for the last readers that are gone
    EXPECT_EQ(Block()[1], 0U);
}

TEST_F(ProcessLockKill, BetweenAnyTwoInstructions) {
    if (!InFrontOfPrograms().empty())
        GTEST_SKIP() << "an emulator traces no process";
    constexpr int Budget = 60000; // of single steps: some take long, and sanitizers make many of one
    lock.ProcessLockInit(name);
    // Lets a child do so many instructions between its stops, all of them if it comes to the end, and kills it.
    const auto killAfter = [&](const Arguments& does, int steps) {
        ChildProcess child(Holder, does);
        const auto id = static_cast<pid_t>(child.Id());
        int status = 0;
        waitpid(id, &status, 0);
        for (int made = 0;; ++made) {
            if (made == steps)
                return made;
            ptrace(PTRACE_SINGLESTEP, id, nullptr, nullptr);
            waitpid(id, &status, 0);
            if (!WIFSTOPPED(status) || WSTOPSIG(status) == SIGSTOP)
                return made;
        }
    };
    const LogLines log; // some warnings
    for (const char* what : {"use", "open anew"}) {
        const Arguments does = {base, what, "stop", what, "stop"}; // at first the linker has work
        const int all = killAfter(does, Budget);
        ASSERT_GT(all, 100);
        const int kills = std::min(150, 2 * Budget / all);
        for (int i = 0; i < kills; ++i) {
            const int steps = killAfter(does, all * i / kills);
            ASSERT_TRUE(TakesToWrite()) << steps;
            lock.ReaderLock(true);
            ASSERT_TRUE(lock.isLocked()) << steps;
            ASSERT_EQ(Block()[1], 1U) << steps;
            lock.ReaderUnlock();
            ASSERT_EQ(Block()[1], 0U) << steps;
        }
    }
    EXPECT_FALSE(log.IsEmpty());
}

// Not killed: all that they open is one object.
TEST_F(ProcessLockKill, InAStormOfOpenersNobodyIsLost) {
    const ScratchDirectory scratch;
    auto& shared = SharedObject<Protected>(scratch / "shared");
    const LogLines log;
    const Arguments opensEachTime = {base, scratch / "shared", "2000", "1"};
    ChildProcess children[] = {ChildProcess(Locker, opensEachTime), ChildProcess(Locker, opensEachTime),
                               ChildProcess(Locker, opensEachTime)};
    for (ChildProcess& child : children)
        EXPECT_TRUE(child.Succeeds());
    EXPECT_EQ(shared.faults, 0U);
    EXPECT_EQ(shared.rounds, 6000U);
    EXPECT_EQ(shared.first, shared.second);
    EXPECT_TRUE(log.IsEmpty());
}
