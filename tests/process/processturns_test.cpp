#include <thread>

#include <grp.h>

#include "log/log_lines.h"
#include "process/processlock.h"
#include "toolkit/qzprocessreaderlock.h"
#include "toolkit/qzprocesswriterlock.h"

using namespace Qzc;

namespace {

using ProcessLockTurns = ProcessLock;

constexpr unsigned Patience = 60000; ///< milliseconds; for what comes soon or, if it is broken, never

/// Does one thing of a lock of its own for ever.
auto ForEver(const KeldMBString& name, const std::function<void(QzProcess&)>& round) {
    return [&name, round] {
        QzProcess own;
        own.ProcessLockInit(name);
        for (;;)
            round(own);
        return true;
    };
}

/// In a process of another user, and of the groups given.
Child AsUser(uid_t user, const std::vector<gid_t>& groups, const std::function<bool()>& body) {
    return Child([&] {
        return setgroups(groups.size(), groups.data()) == 0 && setgid(user) == 0 && setuid(user) == 0 && body();
    });
}

} // namespace

// ---- How long one waits

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
    std::thread inside([&] { lock.WriterLock(false); });
    AWhile();
    EXPECT_FALSE(lock.TimedWriterLock(5));
    other.WriterUnlock();
    inside.join();
    EXPECT_TRUE(lock.TimedWriterLock(0));
    lock.WriterUnlock();
    EXPECT_TRUE(lock.isLocked());
}

TEST_F(ProcessLockTurns, NeitherSideIsShutOut) {
    const auto nap = [] { std::this_thread::sleep_for(std::chrono::milliseconds(3)); };
    const auto read = [&](QzProcess& own) {
        const QzProcessReaderLock reading(own, false);
        nap();
    };
    const auto write = [&](QzProcess& own) {
        const QzProcessWriterLock writing(own, false);
        nap();
    };
    lock.ProcessLockInit(name);
    {
        Child readers[] = {Child(ForEver(name, read)), Child(ForEver(name, read)), Child(ForEver(name, read))};
        for (int i = 0; i < 5; ++i) {
            AWhile();
            ASSERT_TRUE(lock.TimedWriterLock(Patience));
            lock.WriterUnlock();
        }
    }
    Child writers[] = {Child(ForEver(name, write)), Child(ForEver(name, write))};
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(lock.TimedReaderLock(Patience));
        lock.ReaderUnlock();
    }
}

TEST_F(ProcessLockTurns, OneThatIsKilledWhileItWaitsHasWrittenNothing) {
    lock.ProcessLockInit(name);
    const LogLines log;
    for (int i = 0; i < 10; ++i) {
        lock.ReaderLock(false);
        Child writer(ForEver(name, [](QzProcess& own) { own.WriterLock(false); }));
        std::this_thread::sleep_for(std::chrono::milliseconds(2 * i));
        writer.Kill();
        lock.ReaderUnlock();
        ASSERT_TRUE(lock.TimedWriterLock(Patience));
        lock.WriterUnlock();
    }
    EXPECT_TRUE(log.IsEmpty());
}

// ---- The callback

TEST_F(ProcessLockTurns, ACallbackMayNestAndFork) {
    struct Use {
        QzProcess& lock;
        bool writes;
        int child = -1;
        bool nested = false;
        static void Run(void* argument) {
            auto& self = *static_cast<Use*>(argument);
            self.writes ? self.lock.WriterLock(true) : self.lock.ReaderLock(true);
            self.nested = self.lock.isLocked();
            self.writes ? self.lock.WriterUnlock() : self.lock.ReaderUnlock();
            self.child = fork();
        }
    };
    QzProcess other;
    lock.ProcessLockInit(name);
    other.ProcessLockInit(name);
    for (const bool writes : {false, true}) {
        { const QzProcessWriterLock change(other, false); }
        Use use{lock, writes};
        lock.SetCallBack(Use::Run, &use);
        EXPECT_TRUE(writes ? lock.WriterLock(true) : lock.ReaderLock(true));
        if (use.child == 0) {
            const bool holds = lock.isLocked();
            lock.ReaderUnlock();
            lock.WriterUnlock();
            _exit(holds || lock.TimedWriterLock(1) ? 1 : 0); // the parent has it
        }
        int status = -1;
        waitpid(use.child, &status, 0);
        EXPECT_EQ(status, 0);
        EXPECT_TRUE(use.nested && lock.isLocked());
        writes ? lock.WriterUnlock() : lock.ReaderUnlock();
        EXPECT_FALSE(lock.isLocked());
    }
    EXPECT_EQ(Block()[0], 3U); // the child has written nothing
}

// ---- Users and groups

TEST_F(ProcessLockTurns, SaysWhoStandsInTheWay) {
    if (geteuid() != 0)
        GTEST_SKIP() << "wants to be several users";
    const uid_t user = 70000 + unsigned(getpid());
    const std::filesystem::path taken = "/dev/shm/motoolkit-" + std::to_string(user);
    const auto isDenied = [&] {
        const LogLines log;
        return lock.ProcessLockInit(name) == 0 && log.Has("error  -100: create file Semaphore " + base + " Faile") &&
               log.Has("error  -100: " + taken.string() + " is not a directory of this user's");
    };
    EXPECT_TRUE(AsUser(user, {}, [&] { return QzProcess().ProcessLockInit(name) == 1; }).Succeeds());
    std::filesystem::create_directory(taken); // root's
    EXPECT_TRUE(AsUser(user, {}, isDenied).Succeeds());
    std::filesystem::remove_all(taken);
    std::filesystem::create_directory_symlink("/tmp", taken);
    EXPECT_TRUE(AsUser(user, {}, isDenied).Succeeds());
    std::filesystem::remove(taken);
}

TEST_F(ProcessLockTurns, MembersOfAGroupShareItsNames) {
    const LogLines log;
    EXPECT_EQ(lock.ProcessLockInit(name, "no such group"), 0U);
    EXPECT_TRUE(log.Has("error  -100: there is no group no such group"));
    const group* const shared = getgrgid(100); // NOLINT(concurrency-mt-unsafe): one thread
    if (geteuid() != 0 || shared == nullptr)
        GTEST_SKIP() << "wants to be several users, and a group with the number 100";
    const KeldMBString groupName(shared->gr_name);
    const uid_t user = 70000 + unsigned(getpid());
    const mode_t before = umask(077);
    EXPECT_EQ(lock.ProcessLockInit(name, groupName), 1U);
    lock.WriterLock(false);
    const auto shares = [&] {
        QzProcess own;
        if (own.ProcessLockInit(name, groupName) == 0 || own.TimedReaderLock(20))
            return false;
        return QzProcess().ProcessLockInit(name) == 1; // the user's own is another
    };
    EXPECT_TRUE(AsUser(user, {100}, shares).Succeeds());
    const auto isOutside = [&] {
        const LogLines own;
        return QzProcess().ProcessLockInit(name, groupName) == 0 && own.Has("is not one of the group's");
    };
    EXPECT_TRUE(AsUser(user, {}, isOutside).Succeeds());
    lock.ProcessLockRelease();
    // A member makes it, is killed, and another one finds it as new.
    EXPECT_FALSE(AsUser(user, {100}, [&] {
                     return lock.ProcessLockInit(name, groupName) == 1 && !lock.WriterLock(false) &&
                            raise(SIGKILL) == 0;
                 }).Succeeds());
    EXPECT_TRUE(AsUser(user + 1, {100}, [&] {
                    return lock.ProcessLockInit(name, groupName) == 1 && lock.TimedWriterLock(0);
                }).Succeeds());
    umask(before);
    std::filesystem::remove_all("/dev/shm/motoolkit-group-100"); // its maker is gone
}
