// Files by this system's rules: names, long paths, and what others may do to a file that is open.

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/directory.h"
#include "platform/filereplacement.h"
#include "platform/sharedfile.h"
#include "platform/win32/filestatus.h"
#include "support.h"

using namespace std::string_literals;

namespace {

using Creation = Platform::SharedFile::Creation;

constexpr DWORD ShareData = FILE_SHARE_READ | FILE_SHARE_WRITE; // as the C library opens

std::wstring Wide(const std::string& path) {
    return std::filesystem::path(path).wstring();
}

class WindowsFiles : public testing::Test {
protected:
    static Platform::Handle Open(const std::string& path, DWORD access, DWORD share) {
        return Platform::Handle(CreateFileW(Wide(path).c_str(), access, share, nullptr, OPEN_EXISTING,
                                            FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    }

    // The error.
    static int Replace(const std::string& path, const std::string& bytes) {
        int error = 0;
        Platform::Replacement replacement;
        if (!Platform::OpenReplacement(path.c_str(), replacement, error))
            return error;
        const auto size = static_cast<std::int64_t>(bytes.size());
        EXPECT_EQ(Platform::WriteFile(replacement.file, bytes.data(), size, error), size);
        const bool isReplaced = Platform::CommitReplacement(replacement, error);
        EXPECT_EQ(isReplaced, error == 0);
        return error;
    }

    static std::string Read(HANDLE file) {
        char bytes[100] = {};
        DWORD count = 0;
        ReadFile(file, bytes, sizeof(bytes) - 1, &count, nullptr);
        return bytes;
    }

    CurrentCharset m_charset{KELD::KELDCharset::UTF8};
    ScratchDirectory m_scratch;
    std::string m_file = m_scratch / "file";
};

} // namespace

TEST_F(WindowsFiles, SomeNamesAreNone) {
    const std::string deep = std::string(120, 'd') + "\\" + std::string(120, 'e');
    std::filesystem::create_directories(m_scratch / "d");
    for (const std::string& name :
         {"NUL"s, "nul.log"s, "Con .txt"s, "d/aux"s, "COM1"s, "lpt9.a.b"s, "COM\xC2\xB9"s, "conin$"s, "a:b"s, "d:b:c"s,
          "end "s, "d\\end."s, "a.. "s, "\xFF.log"s, "\xED\xA0\x80"s, deep + "\\..\\..\\end."}) {
        const std::string path = m_scratch.Path() + "\\" + name;
        int error = 0;
        for (const auto access : {Platform::FileAccess::Read, Platform::FileAccess::Write})
            EXPECT_TRUE(Platform::OpenFile(path.c_str(), access, error) == Platform::NoFile && error == ENOENT) << path;
        EXPECT_FALSE(Platform::SharedFile().Open(path, Creation::Keep, error)) << path;
        EXPECT_EQ(error, ENOENT);
        EXPECT_EQ(Replace(path, "x"), ENOENT) << path;
        EXPECT_FALSE(Platform::FileExists(path.c_str())) << path;
    }
    EXPECT_EQ(FilesIn(m_scratch.Path()), Arguments{"d"});
    int error = 0;
    EXPECT_EQ(Platform::OpenFile(std::string(200'000'000, 'x').c_str(), Platform::FileAccess::Read, error),
              Platform::NoFile);
    EXPECT_EQ(error, ENAMETOOLONG);
    for (const char* const name :
         {"nul_", "com", "com10", "COM0", ".con", " begin", "d..d", "lpt\xC2\xB4", "\xE4\xB8\xAD"})
        EXPECT_EQ(Replace(m_scratch.Path() + "/" + name, "x"), 0) << name;
}

TEST_F(WindowsFiles, PathsMayBeLong) {
    const std::string before = Platform::CurrentDirectory();
    const std::string part = "/" + std::string(120, 'x');
    const std::string absolute = m_scratch.Path() + part + part + part;
    std::filesystem::create_directories("\\\\?\\" + Native(absolute));
    // So long that a short name behind it is too long.
    const std::string directory = m_scratch.Path() + "/" + std::string(230 - m_scratch.Path().size(), 'y');
    std::filesystem::create_directory(directory);
    ASSERT_NE(SetCurrentDirectoryW(Wide(directory).c_str()), 0);
    const std::string up = "../" + absolute.substr(m_scratch.Path().size() + 1);
    for (const std::string& path :
         {absolute + "/log", absolute + "/.." + part + "/log", absolute + "/../log", up + "/log", up + "/../log",
          "./" + std::string(40, 'z'), "\\\\?\\" + Native(absolute) + "\\log"}) {
        SCOPED_TRACE(path);
        ASSERT_EQ(Replace(path, "one"), 0);
        EXPECT_EQ(Replace(path, "two"), 0);
        Platform::SharedFile shared;
        int error = 0;
        EXPECT_TRUE(shared.Open(path, Creation::Never, error) && shared.Append("3", 1) == 1 && !shared.HasLeft(path));
        EXPECT_TRUE(Platform::FileExists(path.c_str()) && Platform::IsSameFile(path.c_str(), path.c_str()));
        std::string names;
        Platform::ListDirectory(path.substr(0, path.find_last_of("/\\")), [&](const char* name) { names += name; });
        EXPECT_NE(names.find(path.substr(path.find_last_of("/\\") + 1)), names.npos);
        shared.Close();
        Platform::RemoveFile(path.c_str());
        EXPECT_FALSE(Platform::FileExists(path.c_str()));
    }
    SetCurrentDirectoryW(Wide(before).c_str());
    for (std::string path = Native(absolute); path.size() > m_scratch.Path().size(); path.resize(path.size() - 121))
        EXPECT_NE(RemoveDirectoryW(Wide("\\\\?\\" + path).c_str()), 0);
}

TEST_F(WindowsFiles, WhatIsOpenBelongsToAll) {
    int error = 0;
    Platform::SharedFile shared;
    ASSERT_TRUE(shared.Open(m_file, Creation::New, error) && shared.Append("text", 4) == 4);
    EXPECT_FALSE(Platform::SharedFile().Open(m_file, Creation::New, error));
    EXPECT_EQ(error, EEXIST);
    EXPECT_EQ(Read(Open(m_file, GENERIC_READ, ShareData).Get()), "text");
    ASSERT_NE(MoveFileW(Wide(m_file).c_str(), Wide(m_file + "2").c_str()), 0);
    EXPECT_TRUE(shared.HasLeft(m_file) && !shared.HasLeft(m_file + "2") && !shared.IsRemoved());
    EXPECT_EQ(shared.Append("!", 1), 1);
    ASSERT_NE(DeleteFileW(Wide(m_file + "2").c_str()), 0);
    EXPECT_EQ(shared.IsRemoved() && shared.HasLeft(m_file + "2"), RemovesOpenFiles);
}

TEST_F(WindowsFiles, AreReplacedOrLeftAsTheyAre) {
    const struct {
        DWORD access, share, attributes;
        int error;
    } cases[] = {{0, ShareData, FILE_ATTRIBUTE_NORMAL, 0},
                 {GENERIC_READ, Platform::ShareAll, FILE_ATTRIBUTE_NORMAL, 0},
                 {GENERIC_READ | GENERIC_WRITE, Platform::ShareAll, FILE_ATTRIBUTE_HIDDEN, 0},
                 {GENERIC_READ, ShareData, FILE_ATTRIBUTE_NORMAL, EACCES}, // its name is the other's
                 {GENERIC_READ, FILE_SHARE_READ, FILE_ATTRIBUTE_NORMAL, EACCES},
                 {GENERIC_READ, 0, FILE_ATTRIBUTE_NORMAL, EACCES},
                 {GENERIC_READ, Platform::ShareAll, FILE_ATTRIBUTE_READONLY, EACCES}};
    const std::wstring wide = Wide(m_file);
    for (const auto& c : cases) {
        WriteBytes(m_file, "old");
        SetFileAttributesW(wide.c_str(), c.attributes);
        Platform::Handle other = Open(m_file, c.access, c.share);
        ASSERT_TRUE(other);
        EXPECT_EQ(Replace(m_file, "new text"), c.error) << c.access << ' ' << c.share;
        if (c.access != 0) {
            EXPECT_EQ(Read(other.Get()), "old");
        }
        other.Close();
        EXPECT_EQ(FilesIn(m_scratch.Path()), Arguments{"file"}); // and nothing temporary
        EXPECT_EQ(ReadBytes(m_file), c.error == 0 ? "new text" : "old");
        EXPECT_EQ(GetFileAttributesW(wide.c_str()) & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY),
                  c.attributes & ~DWORD{FILE_ATTRIBUTE_NORMAL});
        SetFileAttributesW(wide.c_str(), FILE_ATTRIBUTE_NORMAL);
        std::filesystem::remove(m_file);
    }
    std::filesystem::create_directory(m_scratch / "directory");
    EXPECT_EQ(Replace(m_scratch / "directory", "x"), EISDIR);
    EXPECT_EQ(Replace(m_scratch / "missing/file", "x"), ENOENT);
    EXPECT_EQ(FilesIn(m_scratch.Path()), Arguments{"directory"});
}
