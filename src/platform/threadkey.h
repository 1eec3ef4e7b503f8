#pragma once

#include <atomic>
#include <cstdint>

#include "platform/export.h"
#include "platform/threadlocal.h"

namespace Platform {

/// CurrentThreadKey() where the system's own places for a thread's data are faster than thread_local objects.
MOPLATFORM_API std::uint64_t SystemThreadKey();

inline std::atomic<std::uint64_t> s_lastThreadKey{0};

/// A number of the calling thread that no other thread ever gets, unlike the system's ids, which are handed
/// out again: a lock that a thread took to its grave must not appear to belong to a later one.
inline std::uint64_t CurrentThreadKey() {
    if constexpr (HasThreadLocal) {
        static thread_local std::uint64_t t_key [[gnu::tls_model("initial-exec")]] = 0;
        if (t_key == 0)
            t_key = s_lastThreadKey.fetch_add(1, std::memory_order_relaxed) + 1;
        return t_key;
    } else {
        return SystemThreadKey();
    }
}

} // namespace Platform
