#pragma once

#include <cerrno>
#include <cstdint>

#include "platform/win32/handle.h"
#include "platform/win32/text.h"

namespace Platform {

/// What the system tells of a file.
struct FileStatus {
    std::uint64_t volume = 0;
    std::uint64_t number = 0;
    std::int64_t writtenAt = 0; ///< in units of 100 nanoseconds
    std::int64_t length = 0;
    bool isDirectory = false;
};

inline bool QueryFile(HANDLE file, FileStatus& status) {
    BY_HANDLE_FILE_INFORMATION told = {};
    if (GetFileInformationByHandle(file, &told) == 0)
        return false;
    const auto join = [](DWORD high, DWORD low) { return std::uint64_t{high} << 32 | low; };
    status = {told.dwVolumeSerialNumber, join(told.nFileIndexHigh, told.nFileIndexLow),
              static_cast<std::int64_t>(join(told.ftLastWriteTime.dwHighDateTime, told.ftLastWriteTime.dwLowDateTime)),
              static_cast<std::int64_t>(join(told.nFileSizeHigh, told.nFileSizeLow)),
              (told.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0};
    return true;
}

/// Of what the path leads to, behind any links.
inline bool QueryFile(const wchar_t* path, FileStatus& status) {
    const Handle file(
        CreateFileW(path, FILE_READ_ATTRIBUTES, ShareAll, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    return file && QueryFile(file.Get(), status);
}

inline bool IsSame(const FileStatus& one, const FileStatus& other) {
    return one.volume == other.volume && one.number == other.number;
}

/// Whether a directory stands there, or a link to one.
inline bool IsDirectory(const wchar_t* path) {
    const DWORD attributes = GetFileAttributesW(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

/// Why the file could not be opened just now, as errno.
inline int OpeningError(const WideFilePath& path) {
    const int error = LastErrno();
    return path.Error() != 0 ? path.Error() : IsDirectory(path.Get()) ? EISDIR : error;
}

} // namespace Platform
