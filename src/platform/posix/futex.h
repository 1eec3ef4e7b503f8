#pragma once

#include <algorithm>
#include <climits>
#include <cstdint>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Platform {

/// The system's call as it is. `nanoseconds` below 0: no timeout.
inline long Futex(const void* word, int operation, std::uint32_t value, std::int64_t nanoseconds = -1) {
    constexpr std::int64_t Billion = 1000000000;
    const struct { // two longs, whatever size the C library's own times have
        long seconds;
        long nanoseconds;
    } timeout = {static_cast<long>(std::min<std::int64_t>(nanoseconds / Billion, LONG_MAX)),
                 static_cast<long>(nanoseconds % Billion)};
    return syscall(SYS_futex, word, operation, value, nanoseconds >= 0 ? &timeout : nullptr, nullptr, 0);
}

} // namespace Platform
