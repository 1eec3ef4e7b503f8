#include "platform/win32/filename.h"

#include <algorithm>
#include <new>

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
    name = name.substr(0, name.find(L'.'));
    name = name.substr(0, name.find_last_not_of(L' ') + 1);
    std::array<wchar_t, 7> upper = {};
    if (name.size() > upper.size())
        return false;
    std::transform(name.begin(), name.end(), upper.begin(), Upper);
    const std::wstring_view base(upper.data(), name.size());
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

bool PathUnits::Resize(std::size_t length) {
    m_long.reset(length >= m_short.size() ? new (std::nothrow) wchar_t[length + 1] : nullptr);
    const bool hasRoom = length < m_short.size() || m_long;
    Truncate(hasRoom ? length : 0);
    return hasRoom;
}

void PathUnits::Truncate(std::size_t length) {
    m_length = length;
    Data()[length] = L'\0';
}

bool IsFileName(std::wstring_view path) {
    const std::size_t separator = path.find_last_of(L"/\\");
    std::wstring_view name = separator == std::wstring_view::npos ? path : path.substr(separator + 1);
    if (separator == std::wstring_view::npos && HasDrive(name))
        name.remove_prefix(2);
    if (name.empty() || name == L"." || name == L"..")
        return true; // a directory, as the system will tell
    return name.find(L':') == std::wstring_view::npos && name.back() != L' ' && name.back() != L'.' && !IsDevice(name);
}

bool LiftLimit(PathUnits& path) {
    const std::wstring_view given = path.View();
    const bool hasPrefix = given.size() > 3 && IsSeparator(given[0]) && IsSeparator(given[1]) && given[2] == L'?';
    if (hasPrefix || IsShort(given))
        return true;
    PathUnits absolute;
    const DWORD size = GetFullPathNameW(path.Data(), 0, nullptr, nullptr); // with the zero
    if (size == 0)
        return true;
    const bool hasRoom = absolute.Resize(size - 1);
    const DWORD length = hasRoom ? GetFullPathNameW(path.Data(), size, absolute.Data(), nullptr) : 0;
    if (hasRoom && (length == 0 || length >= size))
        return true; // another thread has changed the directory meanwhile
    const std::wstring_view found(absolute.Data(), length);
    const bool isServer = found.substr(0, 2) == L"\\\\";
    const std::wstring_view prefix = !isServer                    ? L"\\\\?\\"
                                     : found.substr(2, 1) == L"." ? L"" // a device
                                                                  : L"\\\\?\\UNC";
    const std::wstring_view rest = found.substr(isServer && !prefix.empty() ? 1 : 0);
    if (!hasRoom || !path.Resize(prefix.size() + rest.size())) {
        path.Truncate(0);
        return false;
    }
    std::copy(rest.begin(), rest.end(), std::copy(prefix.begin(), prefix.end(), path.Data()));
    return true;
}

} // namespace Platform
