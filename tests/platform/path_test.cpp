// Paths as bytes: beside the C++ library where that has this system's rules, and by hand where it has not.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>

#include "base/pathtext.h"
#include "platform/directory.h"
#include "support.h"

using namespace KELD;
using namespace std::string_literals;

namespace {

constexpr Platform::PathSyntax Volumes = {'\\', true};
const PathText Chinese(KELDCharset::GB2312, Volumes);

} // namespace

TEST(PathText, IsTheCppLibrarysOnThisSystem) {
    const PathText text(KELDCharset::UTF8);
    std::mt19937 random(3);
    const auto path = [&] {
        constexpr std::string_view Pieces[] = {"/", "/", "/", "a", "b", "..", ".", "c.d", "/..", "..."};
        std::string made;
        for (auto count = random() % 9; count > 0; --count)
            made += Pieces[random() % std::size(Pieces)];
        return made;
    };
    for (int i = 0; i < Often(40000); ++i) {
        const std::string one = path();
        const std::string other = path();
        const std::filesystem::path expected(one);
        const bool isRoot = !one.empty() && one.find_first_not_of('/') == std::string::npos; // libraries differ there
        ASSERT_EQ(text.Normal(one), isRoot ? one : expected.lexically_normal().string()) << one;
        ASSERT_EQ(text.Join(one, other), (expected / other).string()) << one << ' ' << other;
        ASSERT_EQ(text.Relative(one, other), expected.lexically_relative(other).string()) << one << ' ' << other;
        ASSERT_EQ(text.NameStart(one), one.rfind('/') + 1) << one;
    }
}

TEST(PathText, KnowsVolumesAndCharactersOfTwoBytes) {
    // 0x81 0x5C is one character.
    EXPECT_EQ(Chinese.ToNative("a/\x81\\b\\c"), "a\\\x81\\b\\c");
    EXPECT_EQ(Chinese.ToGeneric("a\\\x81\\b\\c"), "a/\x81\\b/c");
    EXPECT_EQ(PathText(KELDCharset::GB2312).ToNative("a\\\x81\\b\\c"), "a/\x81\\b/c");
    const std::pair<std::string_view, std::size_t> names[] = {
        {"C:\\a\\b", 5}, {"C:\\\x81\\b", 3}, {"C:b", 2}, {"\\\\s\\d\\b", 6}, {"\\\\s\\d", 5}, {"b", 0}, {"\x81", 0}};
    for (const auto& [path, start] : names)
        EXPECT_EQ(Chinese.NameStart(path), start) << path;

    const std::pair<std::string_view, std::string_view> normal[] = {
        {"C:\\a\\..\\b", "C:\\b"},   {"C:\\..\\a\\", "C:\\a\\"},         {"C:a\\.\\b", "C:a\\b"},
        {"C:a\\..", "C:"},           {"\\\\s\\d\\..\\a", "\\\\s\\d\\a"}, {"\\\\s\\d\\a\\..", "\\\\s\\d\\"},
        {"\\a\\\\b\\.", "\\a\\b\\"}, {"a\\\x81\\\\..\\b", "a\\b"},       {"a\\..", "."}};
    for (const auto& [path, expected] : normal)
        EXPECT_EQ(Chinese.Normal(path), expected) << path;

    const std::string_view joined[][3] = {{"C:\\a", "b", "C:\\a\\b"},         {"C:\\a\\", "b", "C:\\a\\b"},
                                          {"C:\\a", "\\b", "C:\\b"},          {"C:\\a", "D:b", "D:b"},
                                          {"C:\\a", "C:b", "C:\\a\\b"},       {"C:", "b", "C:b"},
                                          {"\\\\s\\d", "b", "\\\\s\\d\\b"},   {"C:\\a", "\\\\s\\d\\b", "\\\\s\\d\\b"},
                                          {"a\\\x81\\", "b", "a\\\x81\\\\b"}, {"C:\\a", "D:\\b", "D:\\b"}};
    for (const auto& [directory, path, expected] : joined)
        EXPECT_EQ(Chinese.Join(directory, path), expected) << directory << ' ' << path;

    EXPECT_EQ(Chinese.Relative("C:\\d\\a\\b.xml", "C:\\d"), "a/b.xml");
    EXPECT_EQ(Chinese.Relative("C:\\e\\\x81\\b", "C:\\d\\f"), "../../e/\x81\\b");
    EXPECT_EQ(Chinese.Relative("D:\\a", "C:\\d"), "");
}

TEST(Directories, TellWhatLiesInThem) {
    const ScratchDirectory scratch;
    WriteBytes(scratch / "b", "12345");
    std::filesystem::create_directory(scratch / "a");
    std::filesystem::create_symlink("b", scratch / "c");
    std::string names;
    Platform::ListDirectory(scratch.Path(), [&](const char* name) { names += name; });
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, "abc");
    Platform::ListDirectory(scratch / "none", [](const char*) { FAIL(); });

    const auto same = [&](const char* one, const char* other) {
        return Platform::IsSameFile((scratch / one).c_str(), (scratch / other).c_str());
    };
    EXPECT_TRUE(same("b", "c") && same("a", "a/../a") && !same("a", "b") && !same("none", "none"));
    std::int64_t time = 0;
    std::int64_t later = 0;
    std::int64_t length = 0;
    EXPECT_TRUE(Platform::FileAge((scratch / "b").c_str(), time, length));
    EXPECT_EQ(length, 5);
    const auto written = std::filesystem::last_write_time(scratch / "b");
    std::filesystem::last_write_time(scratch / "b", written + std::chrono::milliseconds(1));
    EXPECT_TRUE(Platform::FileAge((scratch / "c").c_str(), later, length) && later > time);
    EXPECT_FALSE(Platform::FileAge(scratch.Path().c_str(), time, length));
    EXPECT_EQ(Platform::CurrentDirectory(), std::filesystem::current_path().string());
}
