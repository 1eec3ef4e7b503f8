#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "childprocess.h"
#include "platform/sharedlock.h"
#include "toolkit/qzprocess.h"

using Words = std::vector<std::uint64_t>;

inline const std::filesystem::path& Directory() {
    static const std::filesystem::path s_path = "/dev/shm/motoolkit-" + std::to_string(geteuid());
    return s_path;
}

/// A name of each test's own. What it leaves is a fault: everything is gone with the last that has it open.
class ProcessLock : public testing::Test {
protected:
    // With the process's number: another run of the same user must not meet this one.
    const std::string ours = "lock test " + std::to_string(getpid()) + ' ';
    const std::string base = ours + testing::UnitTest::GetInstance()->current_test_info()->name();
    const Qzc::KeldMBString name{base};
    Qzc::QzProcess lock;

    void TearDown() override {
        lock.ProcessLockRelease();
        if (!std::filesystem::exists(Directory()))
            return;
        for (const auto& entry : std::filesystem::directory_iterator(Directory()))
            EXPECT_EQ(entry.path().string().find("lock%20test%20" + std::to_string(getpid()) + "%20"),
                      std::string::npos)
                << entry.path();
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

    /// A process of its own opens the lock, does this with it, and is killed.
    void KillAfter(const std::function<void(Qzc::QzProcess&)>& use) const {
        Child child([&] {
            Qzc::QzProcess own;
            own.ProcessLockInit(name);
            use(own);
            return raise(SIGKILL) == 0;
        });
        EXPECT_FALSE(child.Succeeds());
    }
};

template <class Condition>
bool Eventually(Condition condition) {
    for (int i = 0; i < 20000 && !condition(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return condition();
}

inline void AWhile() {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
}
