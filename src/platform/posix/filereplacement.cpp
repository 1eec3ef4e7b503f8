#include "platform/filereplacement.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Platform {

namespace {

using Status = struct stat;

constexpr int MaxLinks = 40;

int Descriptor(FileHandle file) {
    return static_cast<int>(file);
}

bool Report(bool succeeded, int& error) {
    error = succeeded ? 0 : errno;
    return succeeded;
}

std::string DirectoryOf(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

// Where the last name of the path leads to, there or not: a new file is to be made behind a link, not in its place.
std::string FollowLinks(std::string path) {
    char link[4096];
    for (int i = 0; i < MaxLinks; ++i) {
        const ssize_t length = readlink(path.c_str(), link, sizeof(link));
        if (length <= 0 || static_cast<std::size_t>(length) == sizeof(link))
            break;
        path = (link[0] == '/' ? std::string() : DirectoryOf(path)).append(link, static_cast<std::size_t>(length));
    }
    return path;
}

// Some links of the process file system name no path, and a file may have lost its name.
bool IsAt(const std::string& path, const Status& file) {
    Status status = {};
    return lstat(path.c_str(), &status) == 0 && status.st_dev == file.st_dev && status.st_ino == file.st_ino;
}

bool TakeOwnerAndMode(int descriptor, const Status& from) {
    Status status = {};
    if (fstat(descriptor, &status) != 0)
        return false;
    const bool owned = status.st_uid == from.st_uid && status.st_gid == from.st_gid;
    return (owned || fchown(descriptor, from.st_uid, from.st_gid) == 0) &&
           fchmod(descriptor, from.st_mode & 07777) == 0;
}

// A file beside the target that may take its place; -1 where there can be none.
int CreateBeside(const std::string& path, const Status* existing, std::string& temporary) {
    static std::atomic<unsigned> s_number{0};
    // What is to become a file that not everybody may read is not to be read on its way.
    const mode_t mode = existing != nullptr ? 0600 : 0666;
    int descriptor = -1;
    do {
        temporary = DirectoryOf(path) + '.' + std::to_string(getpid()) + '-' + std::to_string(s_number.fetch_add(1)) +
                    ".new"; // short, for the target's own name may have all the length there is
        descriptor = open(temporary.c_str(), O_CLOEXEC | O_WRONLY | O_CREAT | O_EXCL, mode);
    } while (descriptor < 0 && errno == EEXIST);
    if (descriptor >= 0 && existing != nullptr && !TakeOwnerAndMode(descriptor, *existing)) {
        const int error = errno;
        close(descriptor);
        unlink(temporary.c_str());
        errno = error;
        descriptor = -1;
    }
    if (descriptor < 0)
        temporary.clear();
    return descriptor;
}

// While one lives, writing to a pipe whose reader has gone is an error and not the process's end.
class PipeSignalBlock {
public:
    PipeSignalBlock() {
        sigemptyset(&m_signal);
        sigaddset(&m_signal, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &m_signal, &m_previous);
    }
    ~PipeSignalBlock() {
        const timespec now = {};
        while (!m_wasPending && sigtimedwait(&m_signal, nullptr, &now) < 0 && errno == EINTR) {
        }
        pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
    }
    PipeSignalBlock(const PipeSignalBlock&) = delete;
    PipeSignalBlock& operator=(const PipeSignalBlock&) = delete;

private:
    sigset_t m_signal;
    sigset_t m_previous;
    bool m_wasPending;
};

// Secures the room that the file does not have yet. Systems of files that cannot are no worse than they were.
bool Allocate(int descriptor, off_t length, off_t newLength, int& error) {
    error = 0;
    if (newLength <= length)
        return true;
    int failure = 0;
    do
        failure = posix_fallocate(descriptor, 0, newLength);
    while (failure == EINTR);
    if (failure != ENOSPC && failure != EDQUOT && failure != EFBIG)
        return true;
    error = ftruncate(descriptor, length) == 0 ? failure : errno;
    return false;
}

bool Copy(FileHandle from, FileHandle to, int& error) {
    Status source = {};
    Status target = {};
    if (!Report(fstat(Descriptor(from), &source) == 0 && fstat(Descriptor(to), &target) == 0, error) ||
        !SeekFile(from, 0, error))
        return false;
    const bool regular = S_ISREG(target.st_mode);
    if (regular && !Allocate(Descriptor(to), target.st_size, source.st_size, error))
        return false;
    constexpr std::int64_t BlockSize = 1 << 16;
    const std::unique_ptr<char[]> block(new char[BlockSize]);
    const PipeSignalBlock blockSignal;
    std::int64_t count = 0;
    while ((count = ReadFile(from, block.get(), BlockSize, error)) > 0) {
        if (WriteFile(to, block.get(), count, error) != count)
            return false;
    }
    return error == 0 && (!regular || (TruncateFile(to, source.st_size, error) && SyncFile(to, error)));
}

bool Close(FileHandle& file, int& error) {
    const FileHandle closed = file;
    file = NoFile;
    return CloseFile(closed, error);
}

} // namespace

bool OpenReplacement(const char* path, Replacement& replacement, int& error) {
    replacement = Replacement();
    const int target = open(path, O_CLOEXEC | O_WRONLY | O_NONBLOCK | O_NOCTTY);
    if (!Report(target >= 0 || (errno == ENOENT && *path != '\0'), error))
        return false;
    replacement.path = FollowLinks(path);
    if (target < 0) {
        replacement.file = CreateBeside(replacement.path, nullptr, replacement.temporary);
        return Report(replacement.file != NoFile, error);
    }
    replacement.target = target;
    Status status = {};
    if (!Report(fstat(target, &status) == 0 && fcntl(target, F_SETFL, O_WRONLY) == 0, error)) {
        AbandonReplacement(replacement);
        return false;
    }
    if (S_ISREG(status.st_mode) && IsAt(replacement.path, status))
        replacement.file = CreateBeside(replacement.path, &status, replacement.temporary);
    if (replacement.file == NoFile)
        replacement.file = memfd_create("replacement", MFD_CLOEXEC);
    if (!Report(replacement.file != NoFile, error))
        AbandonReplacement(replacement);
    return error == 0;
}

bool CommitReplacement(Replacement& replacement, int& error) {
    bool placed = false;
    if (replacement.temporary.empty()) {
        placed = Copy(replacement.file, replacement.target, error);
    } else if (SyncFile(replacement.file, error) && Close(replacement.file, error)) {
        placed = Report(std::rename(replacement.temporary.c_str(), replacement.path.c_str()) == 0, error);
        if (placed) {
            replacement.temporary.clear();
        } else if (replacement.target != NoFile) {
            // A name that something is mounted on, or that is another's in a directory for everybody.
            replacement.file = open(replacement.temporary.c_str(), O_CLOEXEC | O_RDONLY);
            placed = replacement.file != NoFile && Copy(replacement.file, replacement.target, error);
        }
    }
    // What was replaced is closed without a word; what was written to may still report a loss.
    if (placed && replacement.target != NoFile && replacement.file != NoFile)
        placed = Close(replacement.target, error);
    AbandonReplacement(replacement);
    return placed;
}

} // namespace Platform
