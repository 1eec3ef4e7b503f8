#include "platform/file.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Platform {

namespace {

// A single call moves less than 2 GiB whatever it is asked for.
constexpr std::int64_t MaxTransfer = 1 << 30;

int Descriptor(FileHandle file) {
    return static_cast<int>(file);
}

bool Report(bool succeeded, int& error) {
    error = succeeded ? 0 : errno;
    return succeeded;
}

// `transfer(done, size)` moves up to `size` bytes at `done`, as read and write do.
template <class Transfer>
std::int64_t TransferAll(std::int64_t count, int& error, Transfer transfer) {
    error = 0;
    std::int64_t done = 0;
    while (done < count) {
        const ssize_t moved = transfer(done, static_cast<std::size_t>(std::min(count - done, MaxTransfer)));
        if (moved > 0) {
            done += moved;
        } else if (moved == 0) {
            break;
        } else if (errno != EINTR) {
            error = errno;
            break;
        }
    }
    return done;
}

// What keeps a thing of this mode from being a file; 0 when it is one.
int Refusal(mode_t mode) {
    if (S_ISDIR(mode))
        return EISDIR;
    return S_ISFIFO(mode) || S_ISSOCK(mode) ? ESPIPE : 0;
}

} // namespace

FileHandle OpenFile(const char* path, FileAccess access, int& error) {
    int flags = O_CLOEXEC | O_NONBLOCK; // a pipe without a peer must not make us wait
    switch (access) {
    case FileAccess::Read: flags |= O_RDONLY; break;
    case FileAccess::Write: flags |= O_WRONLY | O_CREAT | O_TRUNC; break;
    case FileAccess::ReadWrite: flags |= O_RDWR | O_CREAT; break;
    }
    const int descriptor = open(path, flags, 0666);
    if (!Report(descriptor >= 0, error))
        return NoFile;
    struct stat status = {};
    if (Report(fstat(descriptor, &status) == 0, error))
        error = Refusal(status.st_mode);
    if (error != 0) {
        close(descriptor);
        return NoFile;
    }
    return descriptor;
}

bool CloseFile(FileHandle file, int& error) {
    return Report(close(Descriptor(file)) == 0, error);
}

std::int64_t ReadFile(FileHandle file, void* buffer, std::int64_t count, int& error) {
    return TransferAll(count, error, [&](std::int64_t done, std::size_t size) {
        return read(Descriptor(file), static_cast<char*>(buffer) + done, size);
    });
}

std::int64_t WriteFile(FileHandle file, const void* buffer, std::int64_t count, int& error) {
    return TransferAll(count, error, [&](std::int64_t done, std::size_t size) {
        return write(Descriptor(file), static_cast<const char*>(buffer) + done, size);
    });
}

bool SeekFile(FileHandle file, std::int64_t position, int& error) {
    return Report(lseek(Descriptor(file), position, SEEK_SET) >= 0, error);
}

std::int64_t FileLength(FileHandle file, int& error) {
    struct stat status = {};
    return Report(fstat(Descriptor(file), &status) == 0, error) ? status.st_size : -1;
}

bool TruncateFile(FileHandle file, std::int64_t length, int& error) {
    return Report(ftruncate(Descriptor(file), length) == 0, error);
}

bool FileIsAt(FileHandle file, const char* path) {
    struct stat ours = {};
    struct stat there = {};
    return fstat(Descriptor(file), &ours) == 0 && stat(path, &there) == 0 && ours.st_dev == there.st_dev &&
           ours.st_ino == there.st_ino;
}

bool SyncFile(FileHandle file, int& error) {
    return Report(fsync(Descriptor(file)) == 0, error);
}

bool FileExists(const char* path) {
    struct stat status = {};
    return stat(path, &status) == 0 && Refusal(status.st_mode) == 0;
}

void RemoveFile(const char* path) {
    unlink(path);
}

} // namespace Platform
