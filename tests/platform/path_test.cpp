// Paths as bytes: beside the C++ library where that has this system's rules, and by hand where it has not.

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>
#include <string_view>

#include "base/pathtext.h"
#include "support.h"

using namespace KELD;
using namespace std::string_literals;

namespace {

constexpr Platform::PathSyntax Volumes = {'\\', true};
const PathText Chinese(KELDCharset::GB2312, Volumes);

} // namespace

TEST(PathText, IsTheCppLibrarysOnThisSystem) {
    if (!PosixFiles)
        GTEST_SKIP() << "the library has other roots than the system";
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
        const std::string one = Native(path());
        const std::string other = Native(path());
        const std::filesystem::path expected(one);
        const bool isRoot = !one.empty() && one.find_first_not_of("/\\") == std::string::npos; // libraries differ there
        ASSERT_EQ(text.Normal(one), isRoot ? one : expected.lexically_normal().string()) << one;
        ASSERT_EQ(text.Join(one, other), (expected / other).string()) << one << ' ' << other;
        ASSERT_EQ(text.Relative(one, other), expected.lexically_relative(other).generic_string())
            << one << ' ' << other;
        ASSERT_EQ(text.NameStart(one), one.find_last_of("/\\") + 1) << one;
    }
}

TEST(PathText, KnowsVolumesAndCharactersOfTwoBytes) {
    // 0x81 0x5C is one character.
    EXPECT_EQ(Chinese.ToNative("a/\x81\\b\\c"), "a\\\x81\\b\\c");
    EXPECT_EQ(Chinese.ToGeneric("a\\\x81\\b\\c"), "a/\x81\\b/c");
    EXPECT_EQ(PathText(KELDCharset::GB2312).ToNative("a\\\x81\\b\\c"), PosixFiles ? "a/\x81\\b/c" : "a\\\x81\\b\\c");
    const std::pair<std::string_view, std::size_t> names[] = {
        {"C:\\\x81\\b", 3}, {"C:b", 2}, {"\\\\s\\d\\b", 6}, {"\\\\s\\d", 5}, {"\x81", 0}};
    for (const auto& [path, start] : names)
        EXPECT_EQ(Chinese.NameStart(path), start) << path;

    const std::pair<std::string_view, std::string_view> normal[] = {
        {"C:\\..\\a\\", "C:\\a\\"},         {"C:a\\..", "C:"},
        {"\\\\s\\d\\..\\a", "\\\\s\\d\\a"}, {"\\a\\\\b\\.", "\\a\\b\\"},
        {"a\\\x81\\\\..\\b", "a\\b"},       {"a\\..", "."}};
    for (const auto& [path, expected] : normal)
        EXPECT_EQ(Chinese.Normal(path), expected) << path;

    const std::string_view joined[][3] = {
        {"C:\\a", "b", "C:\\a\\b"},        {"C:\\a", "\\b", "C:\\b"}, {"C:\\a", "D:b", "D:b"},
        {"C:\\a", "C:b", "C:\\a\\b"},      {"C:", "b", "C:b"},        {"\\\\s\\d", "b", "\\\\s\\d\\b"},
        {"a\\\x81\\", "b", "a\\\x81\\\\b"}};
    for (const auto& [directory, path, expected] : joined)
        EXPECT_EQ(Chinese.Join(directory, path), expected) << directory << ' ' << path;

    EXPECT_EQ(Chinese.Relative("C:\\d\\a\\b.xml", "C:\\d"), "a/b.xml");
    EXPECT_EQ(Chinese.Relative("C:\\e\\\x81\\b", "C:\\d\\f"), "../../e/\x81\\b");
    EXPECT_EQ(Chinese.Relative("D:\\a", "C:\\d"), "");
}
