#pragma once

#include <cstdint>

#include "platform/export.h"

/// Files as bytes at 64-bit offsets. Paths are zero-terminated in the system's own form. Functions that can
/// fail give an errno value through `error` (0 when they succeed). Any thread; one handle is used by one
/// thread at a time.
namespace Platform {

using FileHandle = std::intptr_t;
constexpr FileHandle NoFile = -1;

enum class FileAccess {
    Read,      ///< the file must exist
    Write,     ///< created when missing, emptied when there
    ReadWrite, ///< created when missing, kept when there
};

/// Opens regular files and devices. A directory is refused (EISDIR) and so is what has no position, such as a
/// pipe (ESPIPE); opening never waits for another process. NoFile on failure.
MOPLATFORM_API FileHandle OpenFile(const char* path, FileAccess access, int& error);

/// Closes in every case; false when the system reports that something written was lost.
MOPLATFORM_API bool CloseFile(FileHandle file, int& error);

/// Reads until `count` bytes are there or the file ends; the number read, also when an error cut it short.
MOPLATFORM_API std::int64_t ReadFile(FileHandle file, void* buffer, std::int64_t count, int& error);

/// Writes all of it; the number written, less than `count` only with an error.
MOPLATFORM_API std::int64_t WriteFile(FileHandle file, const void* buffer, std::int64_t count, int& error);

MOPLATFORM_API bool SeekFile(FileHandle file, std::int64_t position, int& error);

/// The length in bytes, -1 on failure.
MOPLATFORM_API std::int64_t FileLength(FileHandle file, int& error);

/// Cuts the file off at `length`; the position stays.
MOPLATFORM_API bool TruncateFile(FileHandle file, std::int64_t length, int& error);

/// Whether the path leads to the file.
MOPLATFORM_API bool FileIsAt(FileHandle file, const char* path);

/// Waits until what was written is on the storage device.
MOPLATFORM_API bool SyncFile(FileHandle file, int& error);

MOPLATFORM_API bool
FileExists(const char* path); ///< whether something is there that OpenFile does not refuse for its kind

MOPLATFORM_API void RemoveFile(const char* path);

} // namespace Platform
