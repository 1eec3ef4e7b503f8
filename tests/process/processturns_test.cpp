// How long one waits for the others.

#include <atomic>

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

TEST_F(ProcessLockTurns, ReadersShutNoWriterOut) {
    lock.ProcessLockInit(name);
    const Arguments readsForEver = {base, "read", "nap", "end reading", "again"};
    ChildProcess readers[] = {ChildProcess(Holder, readsForEver), ChildProcess(Holder, readsForEver),
                              ChildProcess(Holder, readsForEver)};
    for (int i = 0; i < 5; ++i) {
        AWhile();
        ASSERT_TRUE(lock.TimedWriterLock(60000)); // which comes soon or, if it is broken, never
        lock.WriterUnlock();
    }
}

TEST_F(ProcessLockTurns, AWaitingWriterLetsReadersIn) {
    QzProcess writer;
    QzProcess reader;
    for (QzProcess* one : {&lock, &writer, &reader})
        one->ProcessLockInit(name);
    lock.ReaderLock(false);
    Together([&] { EXPECT_TRUE(writer.TimedWriterLock(60000)); },
             [&] {
                 AWhile();
                 EXPECT_TRUE(reader.TimedReaderLock(20000));
                 reader.ReaderUnlock();
                 lock.ReaderUnlock();
             });
}

TEST_F(ProcessLockTurns, WhoHasWaitedForLongComesFirst) {
    using Platform::SharedMutex;
    Platform::SharedMemory memories[2];
    for (Platform::SharedMemory& memory : memories)
        memory.Open(base, {64});
    auto& state = *static_cast<SharedMutex::State*>(memories[0].View());
    SharedMutex first(memories[0], state);
    SharedMutex second(memories[1], *static_cast<SharedMutex::State*>(memories[1].View()));
    ASSERT_TRUE(first.TryTake());
    std::atomic<bool> wasRefused{false};
    Together(
        [&] {
            second.Wait(Platform::SharedMemory::Clock::now() + std::chrono::hours(1));
            while (!wasRefused)
                std::this_thread::yield();
            second.Release();
        },
        [&] {
            while ((state.flags.load(std::memory_order_relaxed) & 2) == 0) // not said yet
                AWhile(1);
            first.Release();
            EXPECT_FALSE(first.TryTake());
            wasRefused = true;
        });
    EXPECT_TRUE(first.TryTake());
}
