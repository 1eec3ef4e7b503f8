#pragma once

#include <cstdint>

#include "platform/win32/system.h"

namespace Platform {

/// Locks on bytes of an open file that it need not have. They are the handle's own: two handles of one process keep
/// each other out, and so do two locks of one handle. The system drops them when a process ends.

inline OVERLAPPED AtOffset(std::int64_t offset) {
    OVERLAPPED position = {};
    position.Offset = static_cast<DWORD>(offset & 0xFFFFFFFF);
    position.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return position;
}

inline bool LockBytes(HANDLE file, std::int64_t first, std::int64_t count, bool waits) {
    OVERLAPPED position = AtOffset(first);
    const DWORD flags = LOCKFILE_EXCLUSIVE_LOCK | (waits ? 0 : LOCKFILE_FAIL_IMMEDIATELY);
    return count == 0 || LockFileEx(file, flags, 0, static_cast<DWORD>(count & 0xFFFFFFFF),
                                    static_cast<DWORD>(count >> 32), &position) != 0;
}

/// The same bytes as were locked together.
inline void UnlockBytes(HANDLE file, std::int64_t first, std::int64_t count) {
    OVERLAPPED position = AtOffset(first);
    if (count != 0)
        UnlockFileEx(file, 0, static_cast<DWORD>(count & 0xFFFFFFFF), static_cast<DWORD>(count >> 32), &position);
}

/// Whether somebody has one of them. Also when the system does not tell.
inline bool AreLocked(HANDLE file, std::int64_t first, std::int64_t count) {
    if (!LockBytes(file, first, count, false))
        return true;
    UnlockBytes(file, first, count);
    return false;
}

} // namespace Platform
