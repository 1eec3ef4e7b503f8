#include <algorithm>
#include <atomic>
#include <cstring>
#include <list>
#include <random>
#include <set>

#include <grp.h>
#include <sys/stat.h>

#include "log/log_lines.h"
#include "process/processlock.h"
#include "support.h"

using namespace Qzc;
using Platform::SharedMemory;
using Opening = SharedMemory::Opening;

// ---- The named objects

using NamedObject = ProcessLock;

TEST_F(NamedObject, LivesFromTheFirstOpenerToTheLast) {
    SharedMemory first;
    SharedMemory second;
    const SharedMemory::Options options = {8};
    const auto text = [&] { return std::string(static_cast<char*>(second.View()), 8); };
    const std::string life = "life-" + std::to_string(ProcessId());
    ASSERT_EQ(first.Open(life, options), Opening::Created);
    std::memcpy(first.View(), "abcdefgh", 8);
    ASSERT_EQ(second.Open(life, options), Opening::Opened);
    first.Close();
    EXPECT_EQ(text(), "abcdefgh");
    second.Close();
    ASSERT_EQ(second.Open(life, options), Opening::Created);
    EXPECT_EQ(text(), std::string(8, '\0'));

    SharedMemory other;
    EXPECT_EQ(other.Open(life, {16}), Opening::Unfit);
    EXPECT_EQ(other.Open("", {8}), Opening::Failed);
    using std::filesystem::perms;
    const auto file = Directory() / life;
    EXPECT_EQ(std::filesystem::status(Directory()).permissions(), perms::owner_all);
    EXPECT_EQ(std::filesystem::status(file).permissions(), perms::owner_read | perms::owner_write);
    second.Close();
    EXPECT_FALSE(std::filesystem::exists(file));
    // Somebody's link must not lead elsewhere.
    std::filesystem::create_directory(Directory());
    const ScratchDirectory scratch;
    WriteBytes(scratch / "elsewhere", "");
    std::filesystem::create_symlink(scratch / "elsewhere", file);
    EXPECT_EQ(other.Open(life, {8}), Opening::Failed);
    std::filesystem::remove(file);
}

static const ChildRole KilledOpener("killed opener", [](const Arguments& arguments) {
    SharedMemory own;
    if (own.Open(arguments[0], {8}) == Opening::Opened)
        KillThisProcess();
    return true;
});

TEST_F(NamedObject, GivesSlotsToTheLivingAlone) {
    SharedMemory first;
    ASSERT_EQ(first.Open(base, {8}), Opening::Created);
    constexpr std::uint32_t Openers = 40;
    std::set<const void*> places = {&first.OwnSlot()};
    std::list<SharedMemory> openers;
    while (places.size() < Openers) {
        SharedMemory& opener = openers.emplace_back();
        ASSERT_EQ(opener.Open(base, {8}), Opening::Opened);
        const auto offset = reinterpret_cast<char*>(&opener.OwnSlot()) - static_cast<char*>(opener.View());
        ASSERT_TRUE(places.insert(static_cast<const char*>(first.View()) + offset).second);
    }
    for (std::uint32_t i = 0; i < Openers; ++i)
        EXPECT_EQ(places.count(&first.Slot(i)), 1U);
    EXPECT_EQ(first.SlotsUsed(), Openers);
    openers.clear();
    EXPECT_EQ(first.Slot(1), 0U);
    // Many that are killed leave a few slots: they are looked for when the table would grow.
    for (int i = 0; i < 70; ++i)
        EXPECT_FALSE(ChildProcess(KilledOpener, {base}).Succeeds());
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
    EXPECT_EQ(lock.ProcessLockInit(KeldMBString()), 0U);
    EXPECT_EQ(lock.WaitForValidSignal(nullptr), 0xFFFFFFFFUL);
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
            const Arguments does = {base, writes ? "try to write" : "try to read", dies ? "die" : "end"};
            ASSERT_EQ(ChildProcess(Holder, does).Succeeds(), !dies);
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
    Together(read, read, [&] {
        for (int i = 0; i < 2000; ++i)
            const QzProcessWriterLock writing(writer, true);
    });
    EXPECT_LE(changes, 2000U);
    EXPECT_EQ(Block(), (Words{2000, 0, 2}));
}

// ---- Users and groups

// Opens a lock as another user. Arguments: its name and its group; the user; whether that is a member of group 100;
// what it does, or the lines that it must find in the log when it is denied.
static const ChildRole Somebody("somebody", [](const Arguments& arguments) {
    const auto user = static_cast<uid_t>(std::stoul(arguments[2]));
    const gid_t groups[] = {100};
    if (setgroups(arguments[3] == "member" ? 1 : 0, groups) != 0 || setgid(user) != 0 || setuid(user) != 0)
        return false;
    const LogLines log;
    QzProcess own;
    const std::uint64_t opened = own.ProcessLockInit(KeldMBString(arguments[0]), KeldMBString(arguments[1]));
    const std::string& what = arguments[4];
    if (what == "writes")
        return opened == 1 && own.TimedWriterLock(0);
    if (what == "is killed" && opened == 1 && own.TimedWriterLock(0))
        KillThisProcess();
    if (what == "shares, and has its own")
        return opened == 2 && !own.TimedReaderLock(20) && QzProcess().ProcessLockInit(KeldMBString(arguments[0])) == 1;
    return opened == 0 &&
           std::all_of(arguments.begin() + 4, arguments.end(), [&](const auto& line) { return log.Has(line); });
});

TEST_F(ProcessLock, SaysWhoStandsInTheWay) {
    if (geteuid() != 0)
        GTEST_SKIP() << "wants to be several users";
    const std::string user = std::to_string(70000 + ProcessId());
    const std::filesystem::path taken = "/dev/shm/motoolkit-" + user;
    const Arguments isDenied = {base,
                                "",
                                user,
                                "",
                                "error  -100: create file Semaphore " + base + " Faile",
                                "error  -100: " + taken.string() + " is not a directory of this user's"};
    EXPECT_TRUE(ChildProcess(Somebody, {base, "", user, "", "writes"}).Succeeds());
    std::filesystem::create_directory(taken); // root's
    EXPECT_TRUE(ChildProcess(Somebody, isDenied).Succeeds());
    std::filesystem::remove_all(taken);
    std::filesystem::create_directory_symlink("/tmp", taken);
    EXPECT_TRUE(ChildProcess(Somebody, isDenied).Succeeds());
    std::filesystem::remove(taken);
}

TEST_F(ProcessLock, MembersOfAGroupShareItsNames) {
    const LogLines log;
    EXPECT_EQ(lock.ProcessLockInit(name, "no such group"), 0U);
    EXPECT_TRUE(log.Has("error  -100: there is no group no such group"));
    const group* const shared = getgrgid(100); // NOLINT(concurrency-mt-unsafe): one thread
    if (geteuid() != 0 || shared == nullptr)
        GTEST_SKIP() << "wants to be several users, and a group with the number 100";
    const std::string group = shared->gr_name;
    const auto succeeds = [&](std::uint32_t user, const char* member, const char* what) {
        return ChildProcess(Somebody, {base, group, std::to_string(70000 + user), member, what}).Succeeds();
    };
    const std::uint32_t user = ProcessId();
    const mode_t before = umask(077);
    EXPECT_EQ(lock.ProcessLockInit(name, KeldMBString(group)), 1U);
    lock.WriterLock(false);
    EXPECT_TRUE(succeeds(user, "member", "shares, and has its own"));
    EXPECT_TRUE(succeeds(user, "stranger", "is not one of the group's"));
    lock.ProcessLockRelease();
    // A member makes it, is killed, and another one finds it as new.
    EXPECT_FALSE(succeeds(user, "member", "is killed"));
    EXPECT_TRUE(succeeds(user + 1, "member", "writes"));
    umask(before);
    std::filesystem::remove_all("/dev/shm/motoolkit-group-100"); // its maker is gone
}
