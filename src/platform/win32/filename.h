#pragma once

#include <string>
#include <string_view>

/// Paths as the system's calls take them, in UTF-16.
namespace Platform {

/// Whether the last name of the path may be a file's. Others are no names of files, though the system would open
/// something by them: devices in every directory (NUL, con.log), a file's streams (a:b), and names that end in a blank
/// or a dot, which it takes for those without.
bool IsFileName(std::wstring_view path);

/// The path as it is, or in the form that has no limit of length where that would be too long for the system as it
/// stands: absolute, without "..", with a prefix.
std::wstring WithoutLimit(std::wstring path);

} // namespace Platform
