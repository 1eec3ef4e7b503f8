#include "platform/directory.h"

#include <string_view>

#include "platform/win32/filestatus.h"
#include "platform/win32/system.h"
#include "platform/win32/text.h"

namespace Platform {

void ListDirectory(const std::string& path, const std::function<void(const char* name)>& visit) {
    std::wstring pattern(WidePath(path.c_str()).View());
    if (pattern.empty())
        return;
    pattern += std::wstring_view(L"/\\:").find(pattern.back()) != std::wstring_view::npos ? L"*" : L"\\*";
    WIN32_FIND_DATAW entry = {};
    const HANDLE search = FindFirstFileW(pattern.c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return;
    do {
        const std::wstring_view name = entry.cFileName;
        const std::string bytes = name == L"." || name == L".." ? std::string() : NarrowPath(name);
        if (!bytes.empty())
            visit(bytes.c_str());
    } while (FindNextFileW(search, &entry) != 0);
    FindClose(search);
}

bool FileAge(const char* path, std::int64_t& time, std::int64_t& length) {
    FileStatus status;
    if (!QueryFile(WideFilePath(path).Get(), status) || status.isDirectory)
        return false;
    time = status.writtenAt;
    length = status.length;
    return true;
}

bool IsSameFile(const char* one, const char* other) {
    FileStatus first;
    FileStatus second;
    return QueryFile(WidePath(one).Get(), first) && QueryFile(WidePath(other).Get(), second) && IsSame(first, second);
}

std::string CurrentDirectory() {
    std::wstring path;
    DWORD length = GetCurrentDirectoryW(0, nullptr);
    while (length > path.size()) { // another thread may change it meanwhile
        path.resize(length);
        length = GetCurrentDirectoryW(length, path.data());
    }
    path.resize(length);
    return NarrowPath(path);
}

} // namespace Platform
