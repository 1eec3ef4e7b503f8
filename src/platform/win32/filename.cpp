#include "platform/win32/filename.h"

#include <algorithm>

#include "platform/win32/system.h"

namespace Platform {

namespace {

bool IsSeparator(wchar_t unit) {
    return unit == L'/' || unit == L'\\';
}

wchar_t Upper(wchar_t unit) {
    return unit >= L'a' && unit <= L'z' ? static_cast<wchar_t>(unit - 32) : unit;
}

bool HasDrive(std::wstring_view path) {
    return path.size() > 1 && path[1] == L':' && Upper(path[0]) >= L'A' && Upper(path[0]) <= L'Z';
}

// With whatever behind a dot, and blanks before it.
bool IsDevice(std::wstring_view name) {
    std::wstring base(name.substr(0, name.find(L'.')));
    base.erase(base.find_last_not_of(L' ') + 1);
    std::transform(base.begin(), base.end(), base.begin(), Upper);
    if (base.size() == 4 && (base.compare(0, 3, L"COM") == 0 || base.compare(0, 3, L"LPT") == 0))
        return std::wstring_view(L"123456789\u00B9\u00B2\u00B3").find(base[3]) != std::wstring_view::npos;
    return base == L"CON" || base == L"PRN" || base == L"AUX" || base == L"NUL" || base == L"CONIN$" ||
           base == L"CONOUT$";
}

// Without a prefix the system takes 259 units, and 12 less for a directory.
constexpr std::size_t LongestPlain = 247;

bool IsShort(std::wstring_view path) {
    if (path.size() > LongestPlain)
        return false;
    const bool isServer = path.size() > 1 && IsSeparator(path[0]) && IsSeparator(path[1]);
    if (isServer || (HasDrive(path) && path.size() > 2 && IsSeparator(path[2])))
        return true;
    return !HasDrive(path) && path.size() + GetCurrentDirectoryW(0, nullptr) <= LongestPlain;
}

} // namespace

bool IsFileName(std::wstring_view path) {
    const std::size_t separator = path.find_last_of(L"/\\");
    std::wstring_view name = separator == std::wstring_view::npos ? path : path.substr(separator + 1);
    if (separator == std::wstring_view::npos && HasDrive(name))
        name.remove_prefix(2);
    if (name.empty() || name == L"." || name == L"..")
        return true; // a directory, as the system will tell
    return name.find(L':') == std::wstring_view::npos && name.back() != L' ' && name.back() != L'.' && !IsDevice(name);
}

std::wstring WithoutLimit(std::wstring path) {
    const bool hasPrefix = path.size() > 3 && IsSeparator(path[0]) && IsSeparator(path[1]) && path[2] == L'?';
    if (hasPrefix || IsShort(path))
        return path;
    const DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    std::wstring absolute(size, L'\0');
    const DWORD length = GetFullPathNameW(path.c_str(), size, absolute.data(), nullptr);
    if (length == 0 || length >= size)
        return path;
    absolute.resize(length);
    if (absolute.compare(0, 2, L"\\\\") != 0)
        return L"\\\\?\\" + absolute;
    return absolute[2] == L'.' ? absolute : L"\\\\?\\UNC" + absolute.substr(1); // a device
}

} // namespace Platform
