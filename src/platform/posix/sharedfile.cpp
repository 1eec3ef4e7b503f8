#include "platform/sharedfile.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "platform/posix/filestatus.h"

namespace Platform {

namespace {

// A single call moves less than 2 GiB whatever it is asked for.
constexpr std::int64_t MaxTransfer = 1 << 30;

// Locks are on bytes that no file has.
constexpr off_t ChangeByte = off_t{1} << 61;
constexpr off_t FirstMarkByte = off_t{1} << 62;

int Descriptor(std::int64_t handle) {
    return static_cast<int>(handle);
}

// `transfer(done, size)` moves up to `size` bytes at `done`. What a call has left over is not tried again, for others
// may have come in between; only what no single call can move takes several.
template <class Transfer>
std::int64_t TransferPieces(std::int64_t count, Transfer transfer) {
    std::int64_t done = 0;
    while (done < count) {
        const std::int64_t size = std::min(count - done, MaxTransfer);
        const ssize_t moved = transfer(done, static_cast<std::size_t>(size));
        if (moved < 0 && errno == EINTR)
            continue;
        done += std::max<ssize_t>(moved, 0);
        if (moved < size)
            break;
    }
    return done;
}

struct flock Range(short type, off_t start, off_t length) {
    struct flock range = {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = start;
    range.l_len = length; // 0: without an end
    return range;
}

bool SetLock(std::int64_t handle, int command, short type, off_t start, off_t length) {
    struct flock range = Range(type, start, length);
    int result = 0;
    do
        result = fcntl(Descriptor(handle), command, &range);
    while (result != 0 && errno == EINTR);
    return result == 0 || (errno != EAGAIN && errno != EACCES);
}

bool IsLocked(std::int64_t handle, off_t start, off_t length) {
    struct flock range = Range(F_WRLCK, start, length);
    return fcntl(Descriptor(handle), F_OFD_GETLK, &range) == 0 && range.l_type != F_UNLCK;
}

FileIdentity IdentityOf(const FileStatus& status) {
    return {status.volume, status.number};
}

} // namespace

unsigned int CurrentProcessId() {
    return static_cast<unsigned int>(getpid());
}

SharedFile::SharedFile(SharedFile&& other) noexcept
    : m_handle(std::exchange(other.m_handle, -1)), m_appending(other.m_appending), m_identity(other.m_identity) {}

SharedFile& SharedFile::operator=(SharedFile&& other) noexcept {
    std::swap(m_handle, other.m_handle);
    std::swap(m_appending, other.m_appending);
    std::swap(m_identity, other.m_identity);
    return *this;
}

bool SharedFile::Open(const std::string& path, Creation creation, int& error) {
    Close();
    int flags = O_CLOEXEC | O_NONBLOCK | O_RDWR | O_APPEND; // a pipe without a peer must not make us wait
    if (creation != Creation::Never)
        flags |= creation == Creation::New ? O_CREAT | O_EXCL : O_CREAT;
    const int descriptor = path.find('\0') == std::string::npos ? open(path.c_str(), flags, 0666) : -1;
    if (descriptor < 0) {
        error = path.find('\0') == std::string::npos ? errno : EINVAL;
        return false;
    }
    struct stat status = {};
    error = fstat(descriptor, &status) == 0 ? 0 : errno;
    if (error == 0 && S_ISDIR(status.st_mode))
        error = EISDIR;
    else if (error == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode)))
        error = ESPIPE;
    if (error == 0 && fcntl(descriptor, F_SETFL, O_APPEND) != 0)
        error = errno;
    if (error != 0) {
        close(descriptor);
        return false;
    }
    m_handle = descriptor;
    m_appending = true;
    FileStatus identity;
    if (QueryFile(descriptor, "", STATX_INO, identity))
        m_identity = IdentityOf(identity);
    else
        m_identity = {};
    return true;
}

bool SharedFile::Close() {
    const std::int64_t handle = std::exchange(m_handle, -1);
    return handle < 0 || close(Descriptor(handle)) == 0;
}

// Linux appends whatever the position says while this is on.
bool SharedFile::SetAppending(bool appending) {
    if (m_appending != appending && fcntl(Descriptor(m_handle), F_SETFL, appending ? O_APPEND : 0) == 0)
        m_appending = appending;
    return m_appending == appending;
}

std::int64_t SharedFile::Append(const char* bytes, std::int64_t count) {
    if (!SetAppending(true))
        return 0;
    return TransferPieces(
        count, [&](std::int64_t done, std::size_t size) { return write(Descriptor(m_handle), bytes + done, size); });
}

std::int64_t SharedFile::GetPosition() const {
    return lseek(Descriptor(m_handle), 0, SEEK_CUR);
}

std::int64_t SharedFile::WriteAt(std::int64_t position, const char* bytes, std::int64_t count) {
    if (!SetAppending(false))
        return 0;
    return TransferPieces(count, [&](std::int64_t done, std::size_t size) {
        return pwrite(Descriptor(m_handle), bytes + done, size, position + done);
    });
}

std::int64_t SharedFile::ReadAt(std::int64_t position, char* bytes, std::int64_t count) const {
    return TransferPieces(count, [&](std::int64_t done, std::size_t size) {
        return pread(Descriptor(m_handle), bytes + done, size, position + done);
    });
}

std::int64_t SharedFile::GetLength() const {
    FileStatus status;
    return QueryFile(Descriptor(m_handle), "", STATX_SIZE, status) ? status.length : -1;
}

bool SharedFile::Truncate(std::int64_t length) {
    return ftruncate(Descriptor(m_handle), length) == 0;
}

bool SharedFile::Sync() {
    return fsync(Descriptor(m_handle)) == 0;
}

bool SharedFile::IsRemoved() const {
    FileStatus status;
    return QueryFile(Descriptor(m_handle), "", STATX_NLINK, status) && status.links == 0;
}

bool SharedFile::HasLeft(const std::string& path) const {
    if (path.empty())
        return true;
    FileStatus status;
    if (!QueryFile(AT_FDCWD, path.c_str(), STATX_INO, status))
        return errno == ENOENT || errno == ENOTDIR;
    const FileIdentity there = IdentityOf(status);
    const bool isKnown = m_identity.volume != 0 || m_identity.number != 0;
    return isKnown && (there.volume != m_identity.volume || there.number != m_identity.number);
}

void SharedFile::LockChanges() {
    SetLock(m_handle, F_OFD_SETLKW, F_WRLCK, ChangeByte, 1);
}

void SharedFile::UnlockChanges() {
    SetLock(m_handle, F_OFD_SETLK, F_UNLCK, ChangeByte, 1);
}

void SharedFile::Mark(unsigned int mark) {
    SetLock(m_handle, F_OFD_SETLKW, F_RDLCK, FirstMarkByte + mark, 1);
}

bool SharedFile::IsMarkedElsewhere() const {
    return IsLocked(m_handle, FirstMarkByte, 0);
}

bool SharedFile::IsMarkedElsewhere(unsigned int mark) const {
    return IsLocked(m_handle, FirstMarkByte + mark, 1);
}

bool SharedFile::HoldAlone(unsigned int mark) {
    const bool held = (mark == 0 || SetLock(m_handle, F_OFD_SETLK, F_WRLCK, FirstMarkByte, mark)) &&
                      SetLock(m_handle, F_OFD_SETLK, F_WRLCK, FirstMarkByte + mark + 1, 0);
    if (!held)
        ReleaseAlone(mark);
    return held;
}

void SharedFile::ReleaseAlone(unsigned int mark) {
    if (mark != 0)
        SetLock(m_handle, F_OFD_SETLK, F_UNLCK, FirstMarkByte, mark);
    SetLock(m_handle, F_OFD_SETLK, F_UNLCK, FirstMarkByte + mark + 1, 0);
}

} // namespace Platform
