// What the seam to the system promises to the rest.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <thread>

#include "platform/sharedmemory.h"
#include "platform/waitword.h"
#include "support.h"

TEST(Sizes, SleepsEndInTime) {
    Platform::SharedMemory memory;
    const std::string name = "platform test " + std::to_string(ProcessId());
    ASSERT_EQ(memory.Open(name, {64}), Platform::SharedMemory::Opening::Created);
    auto& word = *new (memory.View()) std::atomic<std::uint32_t>(7);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(Platform::WaitOnWord(&word, 7, 20000));
    EXPECT_FALSE(memory.Sleep(word, 7, std::chrono::milliseconds(20)));
    EXPECT_FALSE(memory.Sleep(word, 7, std::chrono::milliseconds(-20)));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));
    // One that would last for ages is ended by its wake.
    Together([&] { EXPECT_TRUE(Platform::WaitOnWord(&word, 7, std::numeric_limits<std::int64_t>::max())); },
             [&] {
                 std::this_thread::sleep_for(std::chrono::milliseconds(20));
                 word = 8;
                 Platform::WakeAllWaiters(&word);
             });
}
