#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/export.h"

/// What lies in directories. Paths are in the current charset, with the system's own separators. Any thread.
namespace Platform {

/// Hands over the name of each thing in a directory, without "." and "..", in no order; ends early when the system
/// fails.
MOPLATFORM_API void ListDirectory(const std::string& path, const std::function<void(const char* name)>& visit);

/// Of a regular file: when it was last written, counted so that later is more, and its length. False on failure.
MOPLATFORM_API bool FileAge(const char* path, std::int64_t& time, std::int64_t& length);

/// Whether both lead to the same file or directory; no when a question fails.
MOPLATFORM_API bool IsSameFile(const char* one, const char* other);

/// Empty on failure.
MOPLATFORM_API std::string CurrentDirectory();

} // namespace Platform
