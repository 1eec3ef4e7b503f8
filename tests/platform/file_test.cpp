// What the seam to the system promises of files.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <limits>

#include "platform/directory.h"
#include "platform/sharedfile.h"
#include "stream/qzfile.h"
#include "support.h"

using namespace Qzc;

TEST(Files, GoBeyond32Bits) {
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
    if (!MakeSymbolicLink("b", scratch / "c"))
        std::filesystem::create_hard_link(path, scratch / "c");
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
    const int step = PosixFiles ? 1 : 2000; // the C++ library may set whole seconds alone
    std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) + std::chrono::milliseconds(step));
    EXPECT_TRUE(Platform::FileAge((scratch / "c").c_str(), later, length) && later > time && length == 5);
    EXPECT_FALSE(Platform::FileAge(scratch.Path().c_str(), time, length));
    std::filesystem::remove(path);
    EXPECT_EQ(shared.IsRemoved() && shared.HasLeft(path), RemovesOpenFiles);
}

// Also those of two that this process has opened.
TEST(Files, AreMarked) {
    const ScratchDirectory scratch;
    constexpr unsigned int Marks[] = {0, 1, 4711, std::numeric_limits<unsigned int>::max()};
    for (const unsigned int mark : Marks) {
        Platform::SharedFile files[2];
        auto& [a, b] = files;
        int error = 0;
        for (Platform::SharedFile& file : files)
            ASSERT_TRUE(file.Open(scratch / "marked", Platform::SharedFile::Creation::Keep, error));
        EXPECT_FALSE(a.IsMarkedElsewhere());
        b.Mark(mark);
        EXPECT_TRUE(a.IsMarkedElsewhere() && !b.IsMarkedElsewhere() && !b.IsMarkedElsewhere(mark));
        for (const unsigned int other : Marks) {
            EXPECT_EQ(a.IsMarkedElsewhere(other), other == mark);
            EXPECT_EQ(a.HoldAlone(other), other == mark);
            if (other == mark)
                a.ReleaseAlone(mark);
        }
        a.Mark(mark);
        EXPECT_TRUE(a.IsMarkedElsewhere(mark) && b.IsMarkedElsewhere(mark) && a.HoldAlone(mark));
    }
}
