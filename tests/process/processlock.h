#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <csignal>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <unistd.h>

#include "platform/sharedlock.h"
#include "system/system.h"
#include "toolkit/qzprocess.h"
#include "toolkit/qzprocessreaderlock.h"
#include "toolkit/qzprocesswriterlock.h"

using Words = std::vector<std::uint64_t>;

inline const std::filesystem::path& Directory() {
    static const std::filesystem::path s_path = "/dev/shm/motoolkit-" + std::to_string(geteuid());
    return s_path;
}

inline void AWhile(int milliseconds = 30) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

/// A name of each test's own. What it leaves is a fault: everything is gone with the last that has it open.
class ProcessLock : public testing::Test {
protected:
    // With the process's number: another run of the same user must not meet this one.
    const std::string ours = "lock test " + std::to_string(ProcessId()) + ' ';
    const std::string base = ours + testing::UnitTest::GetInstance()->current_test_info()->name();
    const Qzc::KeldMBString name{base};
    Qzc::QzProcess lock;

    void TearDown() override {
        lock.ProcessLockRelease();
        if (!std::filesystem::exists(Directory()))
            return;
        for (const std::string& file : FilesIn(Directory()))
            EXPECT_EQ(file.find("lock%20test%20" + std::to_string(ProcessId()) + "%20"), std::string::npos) << file;
    }

    /// What all see of the lock: the stamp, the reading processes and the attach count.
    Words Block() const {
        Platform::SharedMemory memory;
        if (memory.Open(base + ".lock", {64}) != Platform::SharedMemory::Opening::Opened)
            return {};
        const auto* const words = static_cast<const std::uint64_t*>(memory.View());
        std::uint64_t readers = 0;
        for (std::uint32_t i = 0; i < memory.SlotsUsed(); ++i)
            readers += memory.Slot(i) & Platform::SharedLock::Reading;
        return {words[0], readers, words[2]};
    }

    bool TakesToWrite() {
        lock.WriterLock(true);
        const bool has = lock.isLocked();
        lock.WriterUnlock();
        return has;
    }
};

/// A process with an object of its own. Its arguments: the lock's name, and what it does with it, step by step.
inline const ChildRole Holder("holder", [](const Arguments& arguments) {
    const Qzc::KeldMBString name(arguments[0]);
    Qzc::QzProcess lock;
    lock.ProcessLockInit(name);
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        if (arguments[i] == "again")
            i = 1;
        const std::string& step = arguments[i];
        if (step == "stop" && ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) <= 0) {
            raise(SIGSTOP);
        } else if (step == "use") {
            { const Qzc::QzProcessReaderLock reading(lock, true); }
            { const Qzc::QzProcessWriterLock writing(lock, true); }
        } else if (step == "open anew") {
            lock.ProcessLockRelease();
            lock.ProcessLockInit(name);
        } else if (step == "read")
            lock.ReaderLock(true);
        else if (step == "write")
            lock.WriterLock(true);
        else if (step == "try to read")
            lock.TimedReaderLock(0);
        else if (step == "try to write")
            lock.TimedWriterLock(0);
        else if (step == "end reading")
            lock.ReaderUnlock();
        else if (step == "end writing")
            lock.WriterUnlock();
        else if (step == "die when called back")
            lock.SetCallBack([](void*) { KillThisProcess(); }, nullptr);
        else if (step == "nap")
            AWhile(3);
        else if (step == "die")
            KillThisProcess();
        else if (step == "change it by another object") {
            Qzc::QzProcess other;
            other.ProcessLockInit(name);
            other.WriterLock(false);
        }
    }
    return true;
});
