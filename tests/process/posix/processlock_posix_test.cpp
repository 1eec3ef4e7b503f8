// What the lock has to do with this system alone: the files that it lies in, whose they are, children made by fork,
// and a process that is stopped between any two instructions.

#include <atomic>

#include <csignal>
#include <grp.h>
#include <sys/ptrace.h>
#include <sys/stat.h>

#include "childprocess.h"
#include "log/log_lines.h"
#include "process/processlock.h"
#include "support.h"

using namespace Qzc;

static const std::filesystem::path& Directory() {
    static const std::filesystem::path s_path = "/dev/shm/motoolkit-" + std::to_string(geteuid());
    return s_path;
}

std::vector<std::string> KeptLocks() {
    return std::filesystem::exists(Directory()) ? FilesIn(Directory()) : std::vector<std::string>();
}

TEST_F(ProcessLock, LiesInFilesOfItsUser) {
    Platform::SharedMemory memory;
    using Opening = Platform::SharedMemory::Opening;
    using std::filesystem::perms;
    const auto file = Directory() / base;
    ASSERT_EQ(memory.Open(base, {8}), Opening::Created);
    EXPECT_EQ(std::filesystem::status(Directory()).permissions(), perms::owner_all);
    EXPECT_EQ(std::filesystem::status(file).permissions(), perms::owner_read | perms::owner_write);
    memory.Close();
    // Somebody's link must not lead elsewhere.
    const ScratchDirectory scratch;
    WriteBytes(scratch / "elsewhere", "");
    std::filesystem::create_directory(Directory());
    std::filesystem::create_symlink(scratch / "elsewhere", file);
    EXPECT_EQ(memory.Open(base, {8}), Opening::Failed);
    std::filesystem::remove(file);
    // Any program's first opening takes away what was left.
    EXPECT_FALSE(ChildProcess(User, {base, "read", "dies"}).Succeeds());
    EXPECT_TRUE(std::filesystem::exists(file.string() + ".lock"));
    EXPECT_TRUE(ChildProcess(User, {base + "other", "read", "ends"}).Succeeds());
}

// ---- Users and groups

// Opens a lock as another user. Arguments: its name and its group; the user; whether that is a member of group 100;
// what becomes of it.
static const ChildRole Somebody("somebody", [](const Arguments& arguments) {
    const auto user = static_cast<uid_t>(std::stoul(arguments[2]));
    const gid_t groups[] = {100};
    if (setgroups(arguments[3] == "member" ? 1 : 0, groups) != 0 || setgid(user) != 0 || setuid(user) != 0)
        return false;
    const LogLines log;
    QzProcess own;
    const std::uint64_t opened = own.ProcessLockInit(KeldMBString(arguments[0]), KeldMBString(arguments[1]));
    const std::string& what = arguments[4];
    if (what == "is denied")
        return opened == 0 && log.Has("error  -100: /dev/shm/motoolkit-");
    if (what == "shares")
        return opened == 2 && !own.TimedReaderLock(0);
    if (what == "is killed" && own.TimedWriterLock(0))
        KillThisProcess();
    return opened == 1 && own.TimedWriterLock(0);
});

TEST_F(ProcessLock, IsOfItsUserOrGroupAlone) {
    const group* const shared = getgrgid(100); // NOLINT(concurrency-mt-unsafe): one thread
    if (geteuid() != 0 || shared == nullptr)
        GTEST_SKIP() << "wants to be several users, and a group with the number 100";
    const std::string group = shared->gr_name;
    const std::string user = std::to_string(70000 + ProcessId());
    const auto succeeds = [&](const std::string& inGroup, const char* member, const char* what) {
        return ChildProcess(Somebody, {base, inGroup, user, member, what}).Succeeds();
    };
    const std::filesystem::path taken = "/dev/shm/motoolkit-" + user;
    EXPECT_TRUE(succeeds("", "", "writes"));
    std::filesystem::create_directory(taken); // root's
    EXPECT_TRUE(succeeds("", "", "is denied"));
    std::filesystem::remove(taken);

    const mode_t before = umask(077);
    EXPECT_EQ(lock.ProcessLockInit(name, KeldMBString(group)), 1U);
    lock.WriterLock(false);
    EXPECT_TRUE(succeeds(group, "member", "shares"));
    EXPECT_TRUE(succeeds(group, "stranger", "is denied"));
    lock.ProcessLockRelease();
    // A member makes it, is killed, and the next one finds it as new.
    EXPECT_FALSE(succeeds(group, "member", "is killed"));
    EXPECT_TRUE(succeeds(group, "member", "writes"));
    umask(before);
    std::filesystem::remove_all("/dev/shm/motoolkit-group-100"); // its maker is gone
}

// ---- What a child has of its parent's objects that is made by fork and goes on in the same program

TEST_F(ProcessLock, IsNotHeldByAChild) {
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
    EXPECT_TRUE(lock.TimedWriterLock(60000)); // despite the child that ended as a reader
}

// ---- Between any two instructions

// Does it twice, for at first the linker has work, and stops behind each.
static const ChildRole Traced("traced", [](const Arguments& arguments) {
    const KeldMBString name(arguments[0]);
    QzProcess lock;
    lock.ProcessLockInit(name);
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    for (int i = 0; i < 2; ++i) {
        if (arguments[1] == "uses it") {
            { const QzProcessReaderLock reading(lock, true); }
            { const QzProcessWriterLock writing(lock, true); }
        } else {
            lock.ProcessLockRelease();
            lock.ProcessLockInit(name);
        }
        raise(SIGSTOP);
    }
    return true;
});

TEST_F(ProcessLock, OutlivesOneThatIsKilledBetweenAnyTwoInstructions) {
    if (!InFrontOfPrograms().empty())
        GTEST_SKIP() << "an emulator traces no process";
    constexpr int Budget = 60000; // of single steps: some take long, and sanitizers make many of one
    lock.ProcessLockInit(name);
    // Lets a child do so many instructions between its stops, all of them if it comes to the end, and kills it.
    const auto killAfter = [&](const Arguments& does, int steps) {
        ChildProcess child(Traced, does);
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
    for (const char* what : {"uses it", "opens it anew"}) {
        const int all = killAfter({base, what}, Budget);
        ASSERT_GT(all, 100);
        const int kills = std::min(150, 2 * Budget / all);
        for (int i = 0; i < kills; ++i) {
            const int steps = killAfter({base, what}, all * i / kills);
            ASSERT_TRUE(lock.TimedWriterLock(60000)) << steps;
            lock.WriterUnlock();
            lock.ReaderLock(true);
            ASSERT_TRUE(lock.isLocked()) << steps;
            ASSERT_EQ(Block()[1], 1U) << steps;
            lock.ReaderUnlock();
            ASSERT_EQ(Block()[1], 0U) << steps;
        }
    }
}
