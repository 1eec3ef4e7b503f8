// What the seam to the system promises to the rest.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <thread>

#include "base/keldtime.h"
#include "platform/directory.h"
#include "platform/sharedfile.h"
#include "platform/sharedmemory.h"
#include "platform/waitword.h"
#include "stream/qzfile.h"
#include "support.h"

using namespace Qzc;

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

TEST(Sizes, FilesGoBeyond32Bits) {
    const ScratchDirectory scratch;
    const KeldMBString path(scratch / "far");
    constexpr std::int64_t Far = std::int64_t{5} << 30;
    QzFile file;
    char bytes[4] = {};
    ASSERT_TRUE(file.Open(path, QzFile::Access::ReadWrite) && file.Seek(Far) && file.Write("end", 3) == 3);
    EXPECT_EQ(file.GetLength(), Far + 3);
    ASSERT_TRUE(file.Open(path, QzFile::Access::Read) && file.Seek(Far) && file.Read(bytes, 3) == 3);
    EXPECT_STREQ(bytes, "end");
}

TEST(Files, AreToldApart) {
    const ScratchDirectory scratch;
    const std::string path = scratch / "b";
    int error = 0;
    Platform::SharedFile shared;
    ASSERT_TRUE(shared.Open(path, Platform::SharedFile::Creation::Keep, error));
    EXPECT_EQ(shared.Append("12345", 5), 5);
    EXPECT_TRUE(shared.GetLength() == 5 && !shared.IsRemoved() && !shared.HasLeft(path));
    WriteBytes(scratch / "other", "");
    EXPECT_TRUE(shared.HasLeft(scratch / "other") && shared.HasLeft(scratch / "none") && shared.HasLeft(""));
    std::filesystem::create_symlink("b", scratch / "c");
    std::string names;
    Platform::ListDirectory(scratch.Path(), [&](const char* name) { names += name; });
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, "bcehort");
    EXPECT_TRUE(Platform::IsSameFile(path.c_str(), (scratch / "c").c_str()));
    EXPECT_FALSE(Platform::IsSameFile(path.c_str(), (scratch / "other").c_str()));
    std::int64_t time = 0;
    std::int64_t later = 0;
    std::int64_t length = 0;
    EXPECT_TRUE(Platform::FileAge(path.c_str(), time, length));
    std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) + std::chrono::milliseconds(1));
    EXPECT_TRUE(Platform::FileAge((scratch / "c").c_str(), later, length) && later > time && length == 5);
    EXPECT_FALSE(Platform::FileAge(scratch.Path().c_str(), time, length));
    std::filesystem::remove(path);
    EXPECT_TRUE(shared.IsRemoved() && shared.HasLeft(path));
}
