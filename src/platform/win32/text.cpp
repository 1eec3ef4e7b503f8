#include "platform/win32/text.h"

#include <atomic>
#include <cerrno>

#include "platform/charset.h"
#include "platform/win32/codepage.h"
#include "platform/win32/system.h"

namespace Platform {

namespace {

std::atomic<unsigned int> s_pathCodePage{CP_ACP};

bool IsSeparator(wchar_t unit) {
    return unit == L'/' || unit == L'\\';
}

// Without a prefix the system takes 259 units, and 12 less for a directory.
constexpr std::size_t LongestPlain = 247;

std::wstring Extended(const std::wstring& path) {
    const bool hasPrefix = path.size() > 3 && IsSeparator(path[0]) && IsSeparator(path[1]) && path[2] == L'?';
    if (path.size() <= LongestPlain || hasPrefix)
        return path;
    std::wstring absolute(32768, L'\0');
    const DWORD length = GetFullPathNameW(path.c_str(), static_cast<DWORD>(absolute.size()), absolute.data(), nullptr);
    if (length == 0 || length >= absolute.size())
        return path;
    absolute.resize(length);
    const bool isShare = absolute.size() > 2 && absolute[0] == L'\\' && absolute[1] == L'\\';
    if (isShare && absolute[2] == L'.')
        return absolute; // a device
    return isShare ? L"\\\\?\\UNC" + absolute.substr(1) : L"\\\\?\\" + absolute;
}

} // namespace

void SetPathCharset(std::string_view name) {
    s_pathCodePage.store(CodePageOf(name), std::memory_order_relaxed);
}

std::wstring WidePath(const char* path) {
    const std::string_view bytes = path;
    if (bytes.empty())
        return std::wstring();
    const unsigned int codePage = s_pathCodePage.load(std::memory_order_relaxed);
    const DWORD flags = TakesNoFlags(codePage) ? 0 : MB_ERR_INVALID_CHARS;
    std::wstring wide(bytes.size(), L'\0'); // no charset makes more units than bytes
    const int length = MultiByteToWideChar(codePage, flags, bytes.data(), static_cast<int>(bytes.size()), wide.data(),
                                           static_cast<int>(wide.size()));
    wide.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    return Extended(wide);
}

std::string NarrowPath(std::wstring_view path) {
    if (path.empty())
        return std::string();
    const unsigned int codePage = s_pathCodePage.load(std::memory_order_relaxed);
    const bool isUnicode = TakesNoFlags(codePage);
    std::string bytes(path.size() * 4, '\0');
    BOOL isLossy = FALSE;
    const int length =
        WideCharToMultiByte(codePage, isUnicode ? 0 : WC_NO_BEST_FIT_CHARS, path.data(), static_cast<int>(path.size()),
                            bytes.data(), static_cast<int>(bytes.size()), nullptr, isUnicode ? nullptr : &isLossy);
    bytes.resize(length > 0 && isLossy == FALSE ? static_cast<std::size_t>(length) : 0);
    return bytes;
}

int ErrnoOf(unsigned long error) {
    switch (error) {
    case ERROR_SUCCESS: return 0;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_INVALID_NAME: return ENOENT;
    case ERROR_TOO_MANY_OPEN_FILES: return EMFILE;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_NETWORK_ACCESS_DENIED:
    case ERROR_CANNOT_MAKE:
    case ERROR_DELETE_PENDING: return EACCES;
    case ERROR_WRITE_PROTECT: return EROFS;
    case ERROR_INVALID_HANDLE: return EBADF;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY: return ENOMEM;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS: return EEXIST;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL: return ENOSPC;
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
