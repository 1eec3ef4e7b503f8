#include "platform/sharedfile.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/file.h"
#include "platform/win32/byterange.h"
#include "platform/win32/filestatus.h"
#include "platform/win32/handle.h"
#include "platform/win32/system.h"
#include "platform/win32/text.h"

// A lock of this system that several may share is also in the way of the one who has it and asks whether there are
// others. So each who marks a file takes a byte of its own among those of the mark; all but that one can be asked for.

namespace Platform {

namespace {

constexpr std::int64_t ChangeByte = std::int64_t{1} << 61;
constexpr std::int64_t AppendByte = ChangeByte + 1;
constexpr std::int64_t FirstMarkByte = std::int64_t{1} << 60;
constexpr std::int64_t PerMark = 256; ///< how many can have one mark
constexpr std::int64_t Marks = std::int64_t{1} << 32;
constexpr std::int64_t EndOfMarks = FirstMarkByte + Marks * PerMark;

HANDLE SystemHandle(std::int64_t handle) {
    return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(handle));
}

std::int64_t FirstOf(std::int64_t mark) {
    return FirstMarkByte + mark * PerMark;
}

// A file system without locks grants them all.
bool TakeBytes(HANDLE file, std::int64_t first, std::int64_t count, bool waits) {
    return LockBytes(file, first, count, waits) || GetLastError() != ERROR_LOCK_VIOLATION;
}

bool AreTaken(HANDLE file, std::int64_t first, std::int64_t end) {
    if (!TakeBytes(file, first, end - first, false))
        return true;
    UnlockBytes(file, first, end - first);
    return false;
}

// Whether others than the one with the byte `own` have one of these.
bool AreTakenByOthers(HANDLE file, std::int64_t first, std::int64_t end, std::int64_t own) {
    if (own < first || own >= end)
        return AreTaken(file, first, end);
    return AreTaken(file, first, own) || AreTaken(file, own + 1, end);
}

} // namespace

unsigned int CurrentProcessId() {
    return GetCurrentProcessId();
}

SharedFile::SharedFile(SharedFile&& other) noexcept
    : m_handle(std::exchange(other.m_handle, -1)), m_appending(other.m_appending), m_identity(other.m_identity),
      m_markByte(std::exchange(other.m_markByte, 0)) {}

SharedFile& SharedFile::operator=(SharedFile&& other) noexcept {
    std::swap(m_handle, other.m_handle);
    std::swap(m_appending, other.m_appending);
    std::swap(m_identity, other.m_identity);
    std::swap(m_markByte, other.m_markByte);
    return *this;
}

bool SharedFile::Open(const std::string& path, Creation creation, int& error) {
    Close();
    error = path.find('\0') == std::string::npos ? 0 : EINVAL;
    if (error != 0)
        return false;
    const WideFilePath wide(path.c_str());
    const DWORD disposition = creation == Creation::Keep  ? OPEN_ALWAYS
                              : creation == Creation::New ? CREATE_NEW
                                                          : OPEN_EXISTING;
    Handle file(CreateFileW(wide.Get(), GENERIC_READ | GENERIC_WRITE, ShareAll, nullptr, disposition,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        error = OpeningError(wide);
        return false;
    }
    if (GetFileType(file.Get()) == FILE_TYPE_PIPE) {
        error = ESPIPE;
        return false;
    }
    FileStatus status; // of nothing when the system does not tell
    QueryFile(file.Get(), status);
    m_identity = {status.volume, status.number};
    m_handle = reinterpret_cast<std::intptr_t>(file.Release());
    m_markByte = 0;
    return true;
}

bool SharedFile::Close() {
    const std::int64_t handle = std::exchange(m_handle, -1);
    m_markByte = 0;
    return handle == -1 || CloseHandle(SystemHandle(handle)) != 0;
}

std::int64_t SharedFile::Append(const char* bytes, std::int64_t count) {
    // At this offset the system appends, whoever else writes: in one step on its own disks, but neither over a network
    // nor everywhere that stands in for it, so those of this library keep each other out besides.
    const bool isAlone = LockBytes(SystemHandle(m_handle), AppendByte, 1, true);
    OVERLAPPED end = {};
    end.Offset = 0xFFFFFFFF;
    end.OffsetHigh = 0xFFFFFFFF;
    DWORD written = 0;
    const auto size = static_cast<DWORD>(std::min<std::int64_t>(count, 0x7FFFFFFF));
    ::WriteFile(SystemHandle(m_handle), bytes, size, &written, &end);
    if (isAlone)
        UnlockBytes(SystemHandle(m_handle), AppendByte, 1);
    return written;
}

std::int64_t SharedFile::GetPosition() const {
    LARGE_INTEGER position = {};
    return SetFilePointerEx(SystemHandle(m_handle), LARGE_INTEGER(), &position, FILE_CURRENT) != 0 ? position.QuadPart
                                                                                                   : -1;
}

std::int64_t SharedFile::WriteAt(std::int64_t position, const char* bytes, std::int64_t count) {
    OVERLAPPED place = AtOffset(position);
    DWORD written = 0;
    const auto size = static_cast<DWORD>(std::min<std::int64_t>(count, 0x7FFFFFFF));
    ::WriteFile(SystemHandle(m_handle), bytes, size, &written, &place);
    return written;
}

std::int64_t SharedFile::ReadAt(std::int64_t position, char* bytes, std::int64_t count) const {
    std::int64_t done = 0;
    while (done < count) {
        OVERLAPPED place = AtOffset(position + done);
        DWORD moved = 0;
        const auto size = static_cast<DWORD>(std::min<std::int64_t>(count - done, 1 << 30));
        if (::ReadFile(SystemHandle(m_handle), bytes + done, size, &moved, &place) == 0 || moved == 0)
            break;
        done += moved;
    }
    return done;
}

std::int64_t SharedFile::GetLength() const {
    LARGE_INTEGER size = {};
    return GetFileSizeEx(SystemHandle(m_handle), &size) != 0 ? size.QuadPart : -1;
}

bool SharedFile::Truncate(std::int64_t length) {
    int error = 0;
    return TruncateFile(static_cast<FileHandle>(m_handle), length, error);
}

bool SharedFile::Sync() {
    return FlushFileBuffers(SystemHandle(m_handle)) != 0;
}

bool SharedFile::IsRemoved() const {
    FILE_STANDARD_INFO information = {};
    return GetFileInformationByHandleEx(SystemHandle(m_handle), FileStandardInfo, &information, sizeof(information)) !=
               0 &&
           (information.DeletePending != FALSE || information.NumberOfLinks == 0);
}

bool SharedFile::HasLeft(const std::string& path) const {
    if (path.empty())
        return true;
    const WideFilePath wide(path.c_str());
    FileStatus there;
    if (!QueryFile(wide.Get(), there)) {
        const int error = wide.Error() != 0 ? wide.Error() : LastErrno();
        return error == ENOENT || error == ENOTDIR;
    }
    const bool isKnown = m_identity.volume != 0 || m_identity.number != 0;
    return isKnown && (there.volume != m_identity.volume || there.number != m_identity.number);
}

void SharedFile::LockChanges() {
    LockBytes(SystemHandle(m_handle), ChangeByte, 1, true);
}

void SharedFile::UnlockChanges() {
    UnlockBytes(SystemHandle(m_handle), ChangeByte, 1);
}

void SharedFile::Mark(unsigned int mark) {
    if (m_markByte >= FirstOf(mark) && m_markByte < FirstOf(mark) + PerMark)
        return;
    for (std::int64_t byte = FirstOf(mark); byte < FirstOf(mark) + PerMark; ++byte) {
        if (TakeBytes(SystemHandle(m_handle), byte, 1, false)) {
            m_markByte = byte;
            return;
        }
    }
    // Somebody asks, or keeps others out.
    if (TakeBytes(SystemHandle(m_handle), FirstOf(mark), 1, true))
        m_markByte = FirstOf(mark);
}

bool SharedFile::IsMarkedElsewhere() const {
    return AreTakenByOthers(SystemHandle(m_handle), FirstMarkByte, EndOfMarks, m_markByte);
}

bool SharedFile::IsMarkedElsewhere(unsigned int mark) const {
    return AreTakenByOthers(SystemHandle(m_handle), FirstOf(mark), FirstOf(mark) + PerMark, m_markByte);
}

bool SharedFile::HoldAlone(unsigned int mark) {
    const HANDLE file = SystemHandle(m_handle);
    const std::int64_t behind = FirstOf(std::int64_t{mark} + 1);
    if (!TakeBytes(file, FirstMarkByte, FirstOf(mark) - FirstMarkByte, false))
        return false;
    if (TakeBytes(file, behind, EndOfMarks - behind, false))
        return true;
    UnlockBytes(file, FirstMarkByte, FirstOf(mark) - FirstMarkByte);
    return false;
}

void SharedFile::ReleaseAlone(unsigned int mark) {
    const HANDLE file = SystemHandle(m_handle);
    const std::int64_t behind = FirstOf(std::int64_t{mark} + 1);
    UnlockBytes(file, FirstMarkByte, FirstOf(mark) - FirstMarkByte);
    UnlockBytes(file, behind, EndOfMarks - behind);
}

} // namespace Platform
