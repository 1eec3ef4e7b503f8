#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/sharedlock.h"
#include "system/system.h"
#include "toolkit/qzprocess.h"
#include "toolkit/qzprocessreaderlock.h"
#include "toolkit/qzprocesswriterlock.h"

using Words = std::vector<std::uint64_t>;

inline void AWhile(int milliseconds = 30) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

/// The names of this user's locks that the system still keeps, where they are files.
std::vector<std::string> KeptLocks();

/// A name of each test's own. What it leaves is a fault: everything is gone with the last that has it open.
class ProcessLock : public testing::Test {
protected:
    // With the process's number: another run of the same user must not meet this one.
    const std::string ours = "lock-test-" + std::to_string(ProcessId()) + '-';
    const std::string base = ours + testing::UnitTest::GetInstance()->current_test_info()->name();
    const Qzc::KeldMBString name{base};
    Qzc::QzProcess lock;

    void TearDown() override {
        lock.ProcessLockRelease();
        for (const std::string& kept : KeptLocks())
            EXPECT_EQ(kept.find(ours), std::string::npos) << kept;
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
};

/// Another process. Its arguments: the lock's name, what for it is tried, and whether it dies with it.
inline const ChildRole User("user", [](const Arguments& arguments) {
    Qzc::QzProcess lock;
    lock.ProcessLockInit(Qzc::KeldMBString(arguments[0]));
    if (arguments[1] != "nothing")
        arguments[1] == "write" ? lock.TimedWriterLock(0) : lock.TimedReaderLock(0);
    if (arguments[2] == "dies")
        KillThisProcess();
    return true;
});
