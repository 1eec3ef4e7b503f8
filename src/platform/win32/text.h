#pragma once

#include <string>
#include <string_view>

/// Text at the system's edge: paths are bytes of the current charset here and UTF-16 there.
namespace Platform {

/// A path for the system's calls: empty when the bytes are no text of the charset. Of any length.
std::wstring WidePath(const char* path);
/// The same of a file: empty also when no file has such a name. The system takes an empty path for one where nothing
/// is.
std::wstring WideFilePath(const char* path);

/// The other way; empty when the charset lacks a character.
std::string NarrowPath(std::wstring_view path);

/// The errno value that comes closest to the system's error; of the last one without an argument.
int ErrnoOf(unsigned long error);
int LastErrno();

/// The system's error of a failed call, as errno; 0 for one that succeeded.
bool Report(bool succeeded, int& error);

} // namespace Platform
