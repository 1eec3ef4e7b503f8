// How long one waits for the others.

#include "process/processlock.h"
#include "support.h"

using namespace Qzc;

using ProcessLockTurns = ProcessLock;

// A ReaderLock gives up after 1000 s; its words do what they do then.
TEST_F(ProcessLockTurns, ReadersJoinOneThatGaveUp) {
    struct Reader {
        explicit Reader(const std::string& name) { memory.Open(name, {64}); }
        Platform::SharedLock Lock() {
            auto* const bytes = static_cast<unsigned char*>(memory.View());
            return {memory, *reinterpret_cast<Platform::SharedLock::State*>(bytes + 24)};
        }
        bool Reads() {
            Platform::SharedLock own = Lock();
            return own.TryRead() || own.Read(Platform::SharedMemory::Clock::now()).taken;
        }
        Platform::SharedMemory memory;
    };
    lock.ProcessLockInit(name);
    lock.WriterLock(false);
    Reader patient(base + ".lock");
    Reader late(base + ".lock");
    EXPECT_FALSE(patient.Reads() || late.Reads());
    patient.Lock().CountAsReading();
    EXPECT_TRUE(late.Reads()); // beside the writer
    late.Lock().EndRead();
    lock.WriterUnlock();
    EXPECT_TRUE(lock.TimedWriterLock(0)); // none that waits in vain keeps it out
    patient.Lock().EndRead();
    EXPECT_FALSE(patient.Reads() || late.Reads());
}

TEST_F(ProcessLockTurns, WaitAsLongAsTheyAreTold) {
    QzProcess other;
    lock.ProcessLockInit(name);
    other.ProcessLockInit(name);
    using Clock = std::chrono::steady_clock;
    other.WriterLock(false);
    for (const unsigned milliseconds : {1U, 40U}) {
        for (const bool writes : {false, true}) {
            const auto begin = Clock::now();
            EXPECT_FALSE(writes ? lock.TimedWriterLock(milliseconds) : lock.TimedReaderLock(milliseconds));
            EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(milliseconds));
        }
    }
    // A thread of the same process has the lock under way.
    Together([&] { lock.WriterLock(false); },
             [&] {
                 AWhile();
                 EXPECT_FALSE(lock.TimedWriterLock(5));
                 other.WriterUnlock();
             });
    EXPECT_TRUE(lock.TimedWriterLock(0));
    lock.WriterUnlock();
    EXPECT_TRUE(lock.isLocked());
}

TEST_F(ProcessLockTurns, NeitherSideIsShutOut) {
    constexpr unsigned Patience = 60000; // for what comes soon or, if it is broken, never
    lock.ProcessLockInit(name);
    {
        const Arguments readsForEver = {base, "read", "nap", "end reading", "again"};
        ChildProcess readers[] = {ChildProcess(Holder, readsForEver), ChildProcess(Holder, readsForEver),
                                  ChildProcess(Holder, readsForEver)};
        for (int i = 0; i < 5; ++i) {
            AWhile();
            ASSERT_TRUE(lock.TimedWriterLock(Patience));
            lock.WriterUnlock();
        }
    }
    const Arguments writesForEver = {base, "write", "nap", "end writing", "again"};
    ChildProcess writers[] = {ChildProcess(Holder, writesForEver), ChildProcess(Holder, writesForEver)};
    for (int i = 0; i < 20; ++i) {
        AWhile(3);
        ASSERT_TRUE(lock.TimedReaderLock(Patience));
        lock.ReaderUnlock();
    }
}
