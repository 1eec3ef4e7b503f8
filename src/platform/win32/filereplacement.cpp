#include "platform/filereplacement.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <utility>

#include "platform/win32/handle.h"
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
    const Handle file(CreateFileW(WidePath(path).c_str(), FILE_READ_ATTRIBUTES, ShareAll, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
    const DWORD attributes = GetFileAttributesW(WidePath(path).c_str());
    const bool isLink = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (!file || !isLink)
        return path;
    std::wstring target(32768, L'\0');
    const DWORD length = GetFinalPathNameByHandleW(file.Get(), target.data(), static_cast<DWORD>(target.size()), 0);
    if (length == 0 || length >= target.size())
        return path;
    target.resize(length);
    if (target.compare(0, 4, L"\\\\?\\") == 0)
        target.erase(0, 4);
    const std::string narrow = NarrowPath(target);
    return narrow.empty() ? path : narrow;
}

FileHandle CreateBeside(const std::string& path, std::string& temporary) {
    static std::atomic<unsigned int> s_number{0};
    for (;;) {
        temporary = DirectoryOf(path) + '.' + std::to_string(GetCurrentProcessId()) + '-' +
                    std::to_string(s_number.fetch_add(1)) + ".new";
        const HANDLE file = CreateFileW(WidePath(temporary.c_str()).c_str(), GENERIC_READ | GENERIC_WRITE | DELETE,
                                        ShareAll, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file != INVALID_HANDLE_VALUE)
            return reinterpret_cast<FileHandle>(file);
        if (GetLastError() != ERROR_FILE_EXISTS && GetLastError() != ERROR_ALREADY_EXISTS) {
            const DWORD error = GetLastError();
            temporary.clear();
            SetLastError(error);
            return NoFile;
        }
    }
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

// In one step where the system can, also while others have the old file open.
bool Rename(const std::string& from, const std::string& to) {
    const std::wstring source = WidePath(from.c_str());
    const std::wstring target = WidePath(to.c_str());
    if (MoveFileExW(source.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0)
        return true;
    return ReplaceFileW(target.c_str(), source.c_str(), nullptr, REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr, nullptr) !=
           0;
}

} // namespace

bool OpenReplacement(const char* path, Replacement& replacement, int& error) {
    replacement = Replacement();
    const std::wstring wide = WidePath(path);
    const HANDLE target =
        CreateFileW(wide.c_str(), GENERIC_WRITE, ShareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    const bool isThere = target != INVALID_HANDLE_VALUE;
    error = isThere ? 0 : LastErrno();
    if (!isThere && (error != ENOENT || wide.empty())) {
        const DWORD attributes = GetFileAttributesW(wide.c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
            error = EISDIR;
        return false;
    }
    replacement.path = FollowLinks(path);
    const bool isRegular = !isThere || GetFileType(target) == FILE_TYPE_DISK;
    if (isThere)
        replacement.target = reinterpret_cast<FileHandle>(target);
    if (isRegular)
        replacement.file = CreateBeside(replacement.path, replacement.temporary);
    if (replacement.file == NoFile && isThere) { // a file that is gone when it is closed holds what is written
        std::array<wchar_t, MAX_PATH + 1> folder = {};
        std::array<wchar_t, MAX_PATH + 1> name = {};
        if (GetTempPathW(MAX_PATH, folder.data()) != 0 &&
            GetTempFileNameW(folder.data(), L"new", 0, name.data()) != 0) {
            const HANDLE file = CreateFileW(name.data(), GENERIC_READ | GENERIC_WRITE, ShareAll, nullptr, OPEN_EXISTING,
                                            FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
            replacement.file = file != INVALID_HANDLE_VALUE ? reinterpret_cast<FileHandle>(file) : NoFile;
        }
    }
    Report(replacement.file != NoFile, error);
    if (error != 0)
        AbandonReplacement(replacement);
    return error == 0;
}

bool CommitReplacement(Replacement& replacement, int& error) {
    bool placed = false;
    if (replacement.temporary.empty()) {
        placed = Copy(replacement.file, replacement.target, error);
    } else if (SyncFile(replacement.file, error) && Close(replacement.file, error)) {
        int ignored = 0;
        FileHandle target = std::exchange(replacement.target, NoFile);
        if (target != NoFile)
            Close(target, ignored);
        placed = Report(Rename(replacement.temporary, replacement.path), error);
        if (placed)
            replacement.temporary.clear();
    }
    if (placed && replacement.target != NoFile && replacement.file != NoFile)
        placed = Close(replacement.target, error);
    AbandonReplacement(replacement);
    return placed;
}

} // namespace Platform
