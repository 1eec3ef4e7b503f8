#pragma once

#include <string>
#include <string_view>

#include "platform/win32/filename.h"

/// Text at the system's edge: paths are bytes of the current charset here and UTF-16 there.
namespace Platform {

/// A path for the system's calls, of any length: empty when the bytes are no text of the charset, or without memory.
/// The system takes an empty path for one where nothing is.
class WidePath {
public:
    enum class Of { Anything, File };

    /// That of a file is empty also when no file has such a name.
    explicit WidePath(const char* path, Of kind = Of::Anything);

    const wchar_t* Get() const { return m_units.Data(); }
    std::wstring_view View() const { return m_units.View(); }
    int Error() const { return m_error; } ///< why it is empty, as errno; 0 when it is not

private:
    PathUnits m_units;
    int m_error = 0;
};

/// A file's.
class WideFilePath : public WidePath {
public:
    explicit WideFilePath(const char* path) : WidePath(path, Of::File) {}
};

/// The other way; empty when the charset lacks a character.
std::string NarrowPath(std::wstring_view path);

/// The errno value that comes closest to the system's error; of the last one without an argument.
int ErrnoOf(unsigned long error);
int LastErrno();

/// The system's error of a failed call, as errno; 0 for one that succeeded.
bool Report(bool succeeded, int& error);

} // namespace Platform
