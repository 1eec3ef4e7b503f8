#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string_view>

/// Paths as the system's calls take them, in UTF-16.
namespace Platform {

/// Zero-terminated text that needs no memory until it is longer than most paths.
class PathUnits {
public:
    PathUnits() { m_short[0] = L'\0'; }

    /// Room for so many units, whose contents are open, and the zero; false without memory, and then it is empty.
    bool Resize(std::size_t length);
    void Truncate(std::size_t length); ///< keeps what is before
    wchar_t* Data() { return m_long ? m_long.get() : m_short.data(); }
    const wchar_t* Data() const { return m_long ? m_long.get() : m_short.data(); }
    std::wstring_view View() const { return {Data(), m_length}; }

private:
    std::array<wchar_t, 264> m_short;
    std::unique_ptr<wchar_t[]> m_long;
    std::size_t m_length = 0;
};

/// The system has no longer paths, whatever they begin with.
constexpr std::size_t LongestPath = 32767;

/// Whether the last name of the path may be a file's. Others are no names of files, though the system would open
/// something by them: devices in every directory (NUL, con.log), a file's streams (a:b), and names that end in a blank
/// or a dot, which it takes for those without.
bool IsFileName(std::wstring_view path);

/// Gives the path the form that has no limit of length where it would be too long for the system as it stands:
/// absolute, without "..", with a prefix. False without memory, and then it is empty.
bool LiftLimit(PathUnits& path);

} // namespace Platform
