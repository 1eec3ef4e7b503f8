#include "platform/namedsemaphore.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Platform {

namespace {

// Unlike the waits on words of one process, these are found by all that map the memory. False when the time
// is up.
bool WaitOnSharedWord(const void* word, std::uint32_t expected, std::int64_t milliseconds) {
    std::timespec timeout = {};
    timeout.tv_sec = static_cast<std::time_t>(milliseconds / 1000);
    timeout.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000;
    return syscall(SYS_futex, word, FUTEX_WAIT, expected, &timeout, nullptr, 0) == 0 || errno != ETIMEDOUT;
}

} // namespace

SharedMemory::Opening NamedSemaphore::Open(std::string_view name, std::uint32_t initialCount, std::uint32_t maximum,
                                           std::uint64_t partOf) {
    if (initialCount > maximum || maximum > CountMask)
        return SharedMemory::Opening::Failed;
    SharedState fresh = {};
    fresh.state = initialCount;
    fresh.maximum = maximum;
    SharedMemory::Options options = {sizeof(SharedState), SharedMemory::Kind::Semaphore};
    options.content = &fresh;
    options.partOf = partOf;
    return m_memory.Open(name, options);
}

// A waiter that may have slept leaves the semaphore marked as waited for, since it cannot know whether others
// still sleep. If the one that a post woke is killed before it gets the unit, the others wake by themselves
// after the check interval.
NamedSemaphore::Waited NamedSemaphore::WaitSlowly(std::int64_t milliseconds, SharedMemory::Opener holder) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
    for (int spin = 0; milliseconds > 0 && spin < SpinCount; ++spin) {
        PauseSpinning();
        if (TryTake(holder))
            return Waited::Acquired;
    }
    SharedState& shared = Shared();
    bool check = milliseconds <= 0;
    for (;;) {
        const std::uint32_t wakes = shared.wakes.load(std::memory_order_acquire);
        std::uint64_t state = shared.state.load(std::memory_order_relaxed);
        if ((state & CountMask) != 0) {
            if (shared.state.compare_exchange_weak(state, WithoutOneUnit(state, holder) | Waiters,
                                                   std::memory_order_acquire, std::memory_order_relaxed))
                return Waited::Acquired;
            continue;
        }
        if ((state & Waiters) == 0) {
            shared.state.compare_exchange_weak(state, state | Waiters, std::memory_order_relaxed);
            continue;
        }
        if (check) {
            const SharedMemory::Opener last = Holder(state);
            const bool gone = last != SharedMemory::Nobody && last != Group && !m_memory.IsThere(last);
            if (gone && shared.state.compare_exchange_strong(state, Waiters | std::uint64_t(holder) << HolderShift,
                                                             std::memory_order_acquire))
                return Waited::Abandoned;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0 && check)
            return Waited::TimedOut;
        const std::int64_t nap = std::clamp<std::int64_t>(left, 0, CheckInterval);
        check = !WaitOnSharedWord(&shared.wakes, wakes, nap);
    }
}

void NamedSemaphore::Wake() {
    Shared().wakes.fetch_add(1, std::memory_order_release);
    syscall(SYS_futex, &Shared().wakes, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

} // namespace Platform
