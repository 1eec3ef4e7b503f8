#include "platform/file.h"

#include <algorithm>
#include <cerrno>

#include "platform/win32/filestatus.h"
#include "platform/win32/handle.h"
#include "platform/win32/system.h"
#include "platform/win32/text.h"

namespace Platform {

namespace {

// A single call moves less than 4 GiB whatever it is asked for.
constexpr std::int64_t MaxTransfer = 1 << 30;

HANDLE SystemHandle(FileHandle file) {
    return reinterpret_cast<HANDLE>(file);
}

// What keeps an open thing from being a file; 0 when it is one.
int Refusal(HANDLE file) {
    switch (GetFileType(file)) {
    case FILE_TYPE_PIPE: return ESPIPE;
    case FILE_TYPE_UNKNOWN: return GetLastError() != NO_ERROR ? LastErrno() : ENODEV;
    default: return 0;
    }
}

std::int64_t Size(HANDLE file) {
    LARGE_INTEGER size = {};
    return GetFileSizeEx(file, &size) != 0 ? size.QuadPart : -1;
}

} // namespace

FileHandle OpenFile(const char* path, FileAccess access, int& error) {
    const WideFilePath wide(path);
    DWORD rights = GENERIC_READ;
    DWORD creation = OPEN_EXISTING;
    switch (access) {
    case FileAccess::Read: break;
    case FileAccess::Write:
        rights = GENERIC_WRITE;
        creation = OPEN_ALWAYS; // emptied below: a hidden file could not be made anew
        break;
    case FileAccess::ReadWrite:
        rights = GENERIC_READ | GENERIC_WRITE;
        creation = OPEN_ALWAYS;
        break;
    }
    Handle file(CreateFileW(wide.Get(), rights, ShareAll, nullptr, creation, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        error = OpeningError(wide);
        return NoFile;
    }
    error = Refusal(file.Get());
    if (error == 0 && access == FileAccess::Write && GetFileType(file.Get()) == FILE_TYPE_DISK)
        Report(SetEndOfFile(file.Get()) != 0, error);
    return error == 0 ? reinterpret_cast<FileHandle>(file.Release()) : NoFile;
}

bool CloseFile(FileHandle file, int& error) {
    return Report(CloseHandle(SystemHandle(file)) != 0, error);
}

std::int64_t ReadFile(FileHandle file, void* buffer, std::int64_t count, int& error) {
    error = 0;
    std::int64_t done = 0;
    while (done < count) {
        DWORD moved = 0;
        const auto size = static_cast<DWORD>(std::min(count - done, MaxTransfer));
        if (!Report(::ReadFile(SystemHandle(file), static_cast<char*>(buffer) + done, size, &moved, nullptr) != 0,
                    error) ||
            moved == 0)
            break;
        done += moved;
    }
    return done;
}

std::int64_t WriteFile(FileHandle file, const void* buffer, std::int64_t count, int& error) {
    error = 0;
    std::int64_t done = 0;
    while (done < count) {
        DWORD moved = 0;
        const auto size = static_cast<DWORD>(std::min(count - done, MaxTransfer));
        const bool written =
            ::WriteFile(SystemHandle(file), static_cast<const char*>(buffer) + done, size, &moved, nullptr) != 0;
        done += moved;
        if (!Report(written, error))
            break;
        if (moved == 0) {
            error = ENOSPC;
            break;
        }
    }
    return done;
}

bool SeekFile(FileHandle file, std::int64_t position, int& error) {
    LARGE_INTEGER distance = {};
    distance.QuadPart = position;
    return Report(SetFilePointerEx(SystemHandle(file), distance, nullptr, FILE_BEGIN) != 0, error);
}

std::int64_t FileLength(FileHandle file, int& error) {
    if (GetFileType(SystemHandle(file)) == FILE_TYPE_CHAR) {
        error = 0;
        return 0; // a device
    }
    const std::int64_t size = Size(SystemHandle(file));
    Report(size >= 0, error);
    return size;
}

bool TruncateFile(FileHandle file, std::int64_t length, int& error) {
    FILE_END_OF_FILE_INFO end = {};
    end.EndOfFile.QuadPart = length;
    return Report(SetFileInformationByHandle(SystemHandle(file), FileEndOfFileInfo, &end, sizeof(end)) != 0, error);
}

bool FileIsAt(FileHandle file, const char* path) {
    FileStatus ours;
    FileStatus there;
    return QueryFile(SystemHandle(file), ours) && QueryFile(WideFilePath(path).Get(), there) && IsSame(ours, there);
}

bool SyncFile(FileHandle file, int& error) {
    return Report(FlushFileBuffers(SystemHandle(file)) != 0, error);
}

bool FileExists(const char* path) {
    const WideFilePath wide(path);
    const DWORD attributes = GetFileAttributesW(wide.Get());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        return false;
    FileStatus status; // a link may lead nowhere
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0 || QueryFile(wide.Get(), status);
}

void RemoveFile(const char* path) {
    DeleteFileW(WideFilePath(path).Get());
}

} // namespace Platform
