#pragma once

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace Platform {

/// What the system tells of a file.
struct FileStatus {
    std::uint64_t volume = 0;
    std::uint64_t number = 0;
    std::uint64_t links = 0;
    std::int64_t length = 0;
};

/// Asks for some of it (STATX_...): being told the times too would make the next write stamp and journal the file anew.
/// Systems that do not know such a question, or forbid it, tell everything. `path` empty: of the open file. Sets errno.
inline bool QueryFile(int directory, const char* path, unsigned int mask, FileStatus& result) {
    const bool ofOpen = *path == '\0';
    struct statx some = {};
    if (statx(directory, path, ofOpen ? AT_EMPTY_PATH : 0, mask, &some) == 0) {
        result = {static_cast<std::uint64_t>(some.stx_dev_major) << 32 | some.stx_dev_minor, some.stx_ino,
                  some.stx_nlink, static_cast<std::int64_t>(some.stx_size)};
        return true;
    }
    if (errno == ENOENT || errno == ENOTDIR)
        return false;
    struct stat all = {};
    if ((ofOpen ? fstat(directory, &all) : stat(path, &all)) != 0)
        return false;
    result = {static_cast<std::uint64_t>(major(all.st_dev)) << 32 | minor(all.st_dev), all.st_ino, all.st_nlink,
              all.st_size};
    return true;
}

} // namespace Platform
