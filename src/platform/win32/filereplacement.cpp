#include "platform/filereplacement.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <new>
#include <vector>

#include "platform/win32/filestatus.h"
#include "platform/win32/system.h"
#include "platform/win32/text.h"

namespace Platform {

namespace {

HANDLE SystemHandle(FileHandle file) {
    return reinterpret_cast<HANDLE>(file);
}

std::string DirectoryOf(const std::string& path) {
    return path.substr(0, path.find_last_of("/\\") + 1);
}

bool Close(FileHandle& file, int& error) {
    const FileHandle closed = file;
    file = NoFile;
    return CloseFile(closed, error);
}

// Where the last name of the path leads to, there or not.
std::string FollowLinks(const char* path) {
    const WideFilePath wide(path);
    const Handle file(CreateFileW(wide.Get(), FILE_READ_ATTRIBUTES, ShareAll, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
    const DWORD attributes = GetFileAttributesW(wide.Get());
    const bool isLink = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (!file || !isLink)
        return path;
    std::wstring target(32768, L'\0');
    const DWORD length = GetFinalPathNameByHandleW(file.Get(), target.data(), static_cast<DWORD>(target.size()), 0);
    if (length == 0 || length >= target.size())
        return path;
    target.resize(length);
    if (target.compare(0, 8, L"\\\\?\\UNC\\") == 0)
        target.replace(0, 8, L"\\\\");
    else if (target.compare(0, 4, L"\\\\?\\") == 0)
        target.erase(0, 4);
    const std::string narrow = NarrowPath(target);
    return narrow.empty() ? path : narrow;
}

// The owner, the group and the rights; empty where the system does not tell.
std::vector<unsigned char> SecurityOf(HANDLE file) {
    constexpr SECURITY_INFORMATION All =
        OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    DWORD size = 0;
    GetKernelObjectSecurity(file, All, nullptr, 0, &size);
    std::vector<unsigned char> security(size);
    if (size == 0 || GetKernelObjectSecurity(file, All, security.data(), size, &size) == 0)
        security.clear();
    return security;
}

// A file beside the target that may take its place; NoFile where there can be none.
FileHandle CreateBeside(const std::string& path, FileHandle existing, std::string& temporary) {
    static std::atomic<unsigned int> s_number{0};
    std::vector<unsigned char> security;
    DWORD attributes = 0;
    if (existing != NoFile) {
        security = SecurityOf(SystemHandle(existing));
        BY_HANDLE_FILE_INFORMATION told = {};
        if (GetFileInformationByHandle(SystemHandle(existing), &told) != 0)
            attributes = told.dwFileAttributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                                                  FILE_ATTRIBUTE_ENCRYPTED | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED);
    }
    SECURITY_ATTRIBUTES given = {sizeof(given), security.data(), FALSE};
    constexpr int Tries = 1000; // names are taken by those that a killed process of this number has left
    for (int i = 0; i < Tries; ++i) {
        temporary = DirectoryOf(path) + '.' + std::to_string(GetCurrentProcessId()) + '-' +
                    std::to_string(s_number.fetch_add(1)) + ".new";
        const HANDLE file = CreateFileW(WideFilePath(temporary.c_str()).Get(), GENERIC_READ | GENERIC_WRITE | DELETE,
                                        ShareAll, security.empty() ? nullptr : &given, CREATE_NEW,
                                        attributes != 0 ? attributes : FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file != INVALID_HANDLE_VALUE)
            return reinterpret_cast<FileHandle>(file);
        if (GetLastError() != ERROR_FILE_EXISTS && GetLastError() != ERROR_ALREADY_EXISTS)
            break;
    }
    temporary.clear();
    return NoFile;
}

// A file that is gone when it is closed.
FileHandle CreateNameless() {
    std::array<wchar_t, MAX_PATH + 1> folder = {};
    std::array<wchar_t, MAX_PATH + 1> name = {};
    if (GetTempPathW(MAX_PATH, folder.data()) == 0 || GetTempFileNameW(folder.data(), L"new", 0, name.data()) == 0)
        return NoFile;
    const HANDLE file = CreateFileW(name.data(), GENERIC_READ | GENERIC_WRITE, ShareAll, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file != INVALID_HANDLE_VALUE)
        return reinterpret_cast<FileHandle>(file);
    const DWORD error = GetLastError();
    DeleteFileW(name.data());
    SetLastError(error);
    return NoFile;
}

bool Copy(FileHandle from, FileHandle to, int& error) {
    const std::int64_t length = FileLength(from, error);
    if (length < 0 || !SeekFile(from, 0, error))
        return false;
    const bool regular = GetFileType(SystemHandle(to)) == FILE_TYPE_DISK;
    int ignored = 0;
    const std::int64_t before = regular ? FileLength(to, ignored) : 0;
    // Its room is secured first.
    if (regular && length > before && !TruncateFile(to, length, error)) {
        TruncateFile(to, before, ignored);
        return false;
    }
    constexpr std::int64_t BlockSize = 1 << 16;
    const std::unique_ptr<char[]> block(new char[BlockSize]);
    std::int64_t count = 0;
    while ((count = ReadFile(from, block.get(), BlockSize, error)) > 0) {
        if (WriteFile(to, block.get(), count, error) != count)
            return false;
    }
    return error == 0 && (!regular || (TruncateFile(to, length, error) && SyncFile(to, error)));
}

// In one step, also while others have the old file open. Not every system and not every file system can.
bool RenameOpen(HANDLE file, const wchar_t* target) {
    constexpr auto RenameByFlags = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22); // not in every header
    const DWORD size = GetFullPathNameW(target, 0, nullptr, nullptr);
    std::vector<unsigned char> memory(sizeof(FILE_RENAME_INFO) + size * sizeof(wchar_t));
    auto& rename = *new (memory.data()) FILE_RENAME_INFO();
    const DWORD length = GetFullPathNameW(target, size, rename.FileName, nullptr);
    if (length == 0 || length >= size)
        return false;
    rename.Flags = FILE_RENAME_FLAG_REPLACE_IF_EXISTS | FILE_RENAME_FLAG_POSIX_SEMANTICS;
    rename.FileNameLength = length * static_cast<DWORD>(sizeof(wchar_t));
    return SetFileInformationByHandle(file, RenameByFlags, &rename, static_cast<DWORD>(memory.size())) != 0;
}

// Closes the file.
bool Place(Replacement& replacement, int& error) {
    const WideFilePath source(replacement.temporary.c_str());
    const WideFilePath target(replacement.path.c_str());
    const bool isRenamed = RenameOpen(SystemHandle(replacement.file), target.Get());
    if (!Close(replacement.file, error) || isRenamed ||
        Report(MoveFileExW(source.Get(), target.Get(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0, error))
        return error == 0;
    // The target has no name for a moment then, but may be open. Where somebody keeps its name it is not even tried:
    // not everything that stands for this system cleans up behind a failure.
    if (Handle(CreateFileW(target.Get(), DELETE, ShareAll, nullptr, OPEN_EXISTING, 0, nullptr)) &&
        ReplaceFileW(target.Get(), source.Get(), nullptr, REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr, nullptr) != 0)
        error = 0;
    return error == 0;
}

} // namespace

bool OpenReplacement(const char* path, Replacement& replacement, int& error) {
    replacement = Replacement();
    const WideFilePath wide(path);
    const HANDLE target =
        CreateFileW(wide.Get(), GENERIC_WRITE, ShareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    const bool isThere = target != INVALID_HANDLE_VALUE;
    error = isThere ? 0 : OpeningError(wide);
    if (!isThere && (error != ENOENT || wide.Error() != 0))
        return false;
    if (isThere) {
        replacement.target = reinterpret_cast<FileHandle>(target);
        const DWORD attributes = GetFileAttributesW(wide.Get());
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
            // Not everything that stands for this system refuses its superuser.
            error = EACCES;
            AbandonReplacement(replacement);
            return false;
        }
    }
    replacement.path = FollowLinks(path);
    if (!isThere || GetFileType(target) == FILE_TYPE_DISK)
        replacement.file = CreateBeside(replacement.path, replacement.target, replacement.temporary);
    if (replacement.file == NoFile && isThere)
        replacement.file = CreateNameless();
    Report(replacement.file != NoFile, error);
    if (error != 0)
        AbandonReplacement(replacement);
    return error == 0;
}

bool CommitReplacement(Replacement& replacement, int& error) {
    bool placed = false;
    if (replacement.temporary.empty()) {
        placed = Copy(replacement.file, replacement.target, error) && Close(replacement.target, error);
    } else if (SyncFile(replacement.file, error)) {
        int ignored = 0;
        if (replacement.target != NoFile)
            Close(replacement.target, ignored);
        placed = Place(replacement, error);
        if (placed)
            replacement.temporary.clear();
    }
    AbandonReplacement(replacement);
    return placed;
}

} // namespace Platform
