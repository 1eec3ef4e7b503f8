// What becomes of the file that a document is saved over: links, owners, pipes, and system calls that fail.

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <tuple>
#include <utility>

#include "support.h"
#include "system/system.h"
#include "toolkit/qzmarkup.h"

using namespace Qzc;

// ---- System calls of the libraries that fail when a test wants them to

namespace {

int s_callsToFailure = 0; // 0: none fails

bool Fails() {
    return s_callsToFailure != 0 && --s_callsToFailure == 0;
}

template <class... Arguments>
int Call(bool fails, long number, Arguments... arguments) {
    if (!fails)
        return static_cast<int>(syscall(number, arguments...));
    errno = EIO;
    return -1;
}

} // namespace

#pragma GCC visibility push(default) // the libraries are to find these
extern "C" {
int open(const char* path, int flags, ...) {
    return Call(Fails(), SYS_openat, AT_FDCWD, path, flags | O_LARGEFILE, 0666);
}
int fsync(int file) {
    return Call(Fails(), SYS_getpid) < 0 || file < 0 ? -1 : 0; // no test cuts the power, so none waits
}
int fchmod(int file, mode_t mode) {
    return Call(Fails(), SYS_fchmod, file, mode);
}
int rename(const char* from, const char* to) noexcept {
    return Call(Fails(), SYS_renameat, AT_FDCWD, from, AT_FDCWD, to); // not every processor has SYS_rename
}
int close(int file) {
    const bool fails = Fails();
    const int result = Call(false, SYS_close, file); // closed in every case
    return fails ? Call(true, 0) : result;
}
}
#pragma GCC visibility pop

namespace {

class MarkupSave : public testing::Test {
protected:
    ScratchDirectory m_directory;
    std::string m_path = m_directory / "file.xml";
    CurrentCharset m_current{KELDCharset::UTF8};
};

TEST_F(MarkupSave, SavesInThePlaceOfWhatIsThere) {
    const std::string saved = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<a/>";
    const std::string old(100, 'o');
    const auto save = [&](const std::string& path) { return QzMarkup("<a/>").Save(path.c_str()); };
    const auto make = [&](const std::string& path, mode_t mode) {
        WriteBytes(path, old);
        chmod(path.c_str(), mode);
        return path;
    };
    const auto ownerOf = [](const std::string& path) {
        struct stat status = {};
        stat(path.c_str(), &status);
        return std::tuple(status.st_mode, status.st_uid, status.st_gid);
    };
    // Links stay, and owner and permissions of the file.
    make(m_path, 0640);
    const bool isSuperuser = chown(m_path.c_str(), OrdinaryUser::Id, OrdinaryUser::Id) == 0;
    const auto owner = ownerOf(m_path);
    std::filesystem::create_directory(m_directory / "links");
    std::filesystem::create_symlink("../file.xml", m_directory / "links/relative");
    std::filesystem::create_symlink(m_directory / "links/relative", m_directory / "links/link");
    std::filesystem::create_symlink("../made.xml", m_directory / "links/dangling");
    for (const auto& [link, file] : {std::pair("links/link", "file.xml"), std::pair("links/dangling", "made.xml")}) {
        EXPECT_TRUE(save(m_directory / link) && ReadBytes(m_directory / file) == saved);
        EXPECT_TRUE(std::filesystem::is_symlink(m_directory / link));
    }
    EXPECT_EQ(ownerOf(m_path), owner);

    // Where no file can be made in the directory, or it could not have the owner, the one that is there is written.
    std::filesystem::create_directory(m_directory / "closed");
    for (const std::string& path :
         {make(m_directory / "closed/file.xml", 0666), make(m_directory / "open.xml", 0666)}) {
        chmod(m_directory.Path().c_str(), 0777);
        const auto before = ownerOf(path);
        const OrdinaryUser ordinary;
        {
            const FullDisk full(20);
            EXPECT_FALSE(isSuperuser && save(path));
        }
        EXPECT_EQ(ReadBytes(path), old);
        EXPECT_TRUE(save(path) && ReadBytes(path) == saved);
        EXPECT_TRUE(!isSuperuser || ownerOf(path) == before);
    }
    EXPECT_EQ(FilesIn(m_directory / "closed").size() + FilesIn(m_directory.Path()).size(), 1U + 5U) << "left behind";

    // A pipe is written to; a reader that goes is an error.
    const std::string pipe = m_directory / "pipe";
    mkfifo(pipe.c_str(), 0600);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    EXPECT_TRUE(save(pipe));
    std::string read(100, '\0');
    read.resize(static_cast<std::size_t>(::read(reader, read.data(), read.size())));
    EXPECT_EQ(read, saved);
    std::thread leaving([&] {
        for (char byte = 0; ::read(reader, &byte, 1) != 1;)
            std::this_thread::yield();
        close(reader);
    });
    EXPECT_FALSE(QzMarkup(("<a>" + std::string(1 << 20, 'x') + "</a>").c_str()).Save(pipe.c_str()));
    leaving.join();
}

// Whichever system call fails, the file is the old one or the new one, and Save says which.
TEST_F(MarkupSave, LosesNothingWhenTheSystemFails) {
    const auto descriptors = [] { return FilesIn("/proc/self/fd").size(); };
    const std::string old(50000, 'o');
    const std::string doc = "<a>" + std::string(60000, 'x') + "</a>";
    const std::string saved = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n" + doc;
    const std::size_t opened = descriptors();
    int failures = 0;
    const auto check = [&](int room, int call) {
        SCOPED_TRACE(std::to_string(room) + " " + std::to_string(call));
        WriteBytes(m_path, old);
        QzMarkup markup(doc.c_str());
        const std::unique_ptr<FullDisk> full(room >= 0 ? new FullDisk(static_cast<std::uint64_t>(room)) : nullptr);
        s_callsToFailure = call;
        const bool done = markup.Save(m_path.c_str());
        const bool isReached = s_callsToFailure == 0;
        s_callsToFailure = 0;
        EXPECT_EQ(ReadBytes(m_path), done ? saved : old);
        EXPECT_EQ(markup.GetDoc(), (done ? saved : doc).c_str());
        EXPECT_EQ(FilesIn(m_directory.Path()).size(), 1U);
        EXPECT_EQ(descriptors(), opened);
        failures += done ? 0 : 1;
        return isReached;
    };
    for (const int room : {0, 1, 4096, 50000, 60000})
        check(room, 0);
    EXPECT_EQ(failures, 5);
    for (int call = 1; check(-1, call); ++call) {
    }
    EXPECT_EQ(failures, 5 + 3) << "opening the file, syncing and closing the new one";
}

} // namespace
