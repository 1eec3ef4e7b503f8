#include "platform/win32/text.h"

#include <atomic>
#include <cerrno>
#include <climits>

#include "platform/charset.h"
#include "platform/win32/codepage.h"
#include "platform/win32/system.h"

namespace Platform {

namespace {

std::atomic<unsigned int> s_pathCodePage{CP_ACP};

// Of those that take no flags these two take one.
bool TellsInvalid(unsigned int codePage) {
    return !TakesNoFlags(codePage) || codePage == CP_UTF8 || codePage == 54936;
}

// An errno value.
int Widen(std::string_view bytes, PathUnits& units) {
    constexpr std::size_t MostBytes = 4; // of a unit, in any charset that paths have
    if (bytes.empty())
        return ENOENT;
    if (bytes.size() > LongestPath * MostBytes)
        return ENAMETOOLONG;
    const unsigned int codePage = s_pathCodePage.load(std::memory_order_relaxed);
    const DWORD flags = TellsInvalid(codePage) ? MB_ERR_INVALID_CHARS : 0;
    const auto size = static_cast<int>(bytes.size());
    if (!units.Resize(bytes.size())) // no charset makes more units than bytes
        return ENOMEM;
    const int length = MultiByteToWideChar(codePage, flags, bytes.data(), size, units.Data(), size);
    units.Truncate(length > 0 ? static_cast<std::size_t>(length) : 0);
    return length > 0 ? 0 : ENOENT; // the system would put other characters in the place of what is no text
}

} // namespace

void SetPathCharset(std::string_view name) {
    s_pathCodePage.store(CodePageOf(name), std::memory_order_relaxed);
}

WidePath::WidePath(const char* path, Of kind) : m_error(Widen(path, m_units)) {
    if (m_error == 0 && kind == Of::File && !IsFileName(m_units.View()))
        m_error = ENOENT;
    if (m_error == 0 && !LiftLimit(m_units))
        m_error = ENOMEM;
    if (m_error != 0)
        m_units.Truncate(0);
}

std::string NarrowPath(std::wstring_view path) {
    if (path.empty() || path.size() > INT_MAX / 4)
        return std::string();
    const unsigned int codePage = s_pathCodePage.load(std::memory_order_relaxed);
    const bool isUnicode = TakesNoFlags(codePage);
    const DWORD flags = !isUnicode ? WC_NO_BEST_FIT_CHARS : TellsInvalid(codePage) ? WC_ERR_INVALID_CHARS : 0;
    std::string bytes(path.size() * 4, '\0');
    BOOL isLossy = FALSE;
    const int length = WideCharToMultiByte(codePage, flags, path.data(), static_cast<int>(path.size()), bytes.data(),
                                           static_cast<int>(bytes.size()), nullptr, isUnicode ? nullptr : &isLossy);
    bytes.resize(length > 0 && isLossy == FALSE ? static_cast<std::size_t>(length) : 0);
    return bytes;
}

int ErrnoOf(unsigned long error) {
    constexpr unsigned long DiskQuotaExceeded = 1295; // not in every header
    switch (error) {
    case ERROR_SUCCESS: return 0;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_NOT_READY:
    case ERROR_INVALID_NAME: return ENOENT;
    case ERROR_TOO_MANY_OPEN_FILES: return EMFILE;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_NETWORK_ACCESS_DENIED:
    case ERROR_CANNOT_MAKE:
    case ERROR_USER_MAPPED_FILE:
    case ERROR_UNABLE_TO_REMOVE_REPLACED:
    case ERROR_PRIVILEGE_NOT_HELD:
    case ERROR_DELETE_PENDING: return EACCES;
    case ERROR_WRITE_PROTECT: return EROFS;
    case ERROR_INVALID_HANDLE: return EBADF;
    case ERROR_FILE_TOO_LARGE: return EFBIG;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY: return ENOMEM;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS: return EEXIST;
    case ERROR_DISK_FULL:
    case DiskQuotaExceeded:
    case ERROR_HANDLE_DISK_FULL: return ENOSPC;
    case ERROR_PIPE_BUSY: return ESPIPE;
    case ERROR_BROKEN_PIPE:
    case ERROR_NO_DATA: return EPIPE;
    case ERROR_BUFFER_OVERFLOW:
    case ERROR_FILENAME_EXCED_RANGE: return ENAMETOOLONG;
    case ERROR_DIRECTORY: return ENOTDIR;
    case ERROR_DIR_NOT_EMPTY: return ENOTEMPTY;
    case ERROR_NEGATIVE_SEEK:
    case ERROR_INVALID_PARAMETER: return EINVAL;
    case ERROR_NOT_SAME_DEVICE: return EXDEV;
    case ERROR_BUSY: return EBUSY;
    default: return EIO;
    }
}

int LastErrno() {
    const int error = ErrnoOf(GetLastError());
    return error != 0 ? error : EIO;
}

bool Report(bool succeeded, int& error) {
    error = succeeded ? 0 : LastErrno();
    return succeeded;
}

} // namespace Platform
