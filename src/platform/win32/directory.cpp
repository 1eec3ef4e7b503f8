#include "platform/directory.h"

#include <string_view>

#include "platform/win32/handle.h"
#include "platform/win32/system.h"
#include "platform/win32/text.h"

namespace Platform {

void ListDirectory(const std::string& path, const std::function<void(const char* name)>& visit) {
    std::wstring pattern = WidePath(path.c_str());
    if (pattern.empty())
        return;
    pattern += pattern.back() == L'\\' || pattern.back() == L'/' ? L"*" : L"\\*";
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
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    if (GetFileAttributesExW(WidePath(path).c_str(), GetFileExInfoStandard, &data) == 0 ||
        (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        return false;
    const auto join = [](DWORD high, DWORD low) { return static_cast<std::int64_t>(std::uint64_t{high} << 32 | low); };
    time = join(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime);
    length = join(data.nFileSizeHigh, data.nFileSizeLow);
    return true;
}

bool IsSameFile(const char* one, const char* other) {
    const auto open = [](const char* path) {
        return Handle(CreateFileW(WidePath(path).c_str(), FILE_READ_ATTRIBUTES, ShareAll, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    };
    const Handle first = open(one);
    const Handle second = open(other);
    BY_HANDLE_FILE_INFORMATION a = {};
    BY_HANDLE_FILE_INFORMATION b = {};
    return GetFileInformationByHandle(first.Get(), &a) != 0 && GetFileInformationByHandle(second.Get(), &b) != 0 &&
           a.dwVolumeSerialNumber == b.dwVolumeSerialNumber && a.nFileIndexHigh == b.nFileIndexHigh &&
           a.nFileIndexLow == b.nFileIndexLow;
}

std::string CurrentDirectory() {
    std::wstring path(32768, L'\0');
    const DWORD length = GetCurrentDirectoryW(static_cast<DWORD>(path.size()), path.data());
    path.resize(length < path.size() ? length : 0);
    return NarrowPath(path);
}

} // namespace Platform
