#include "platform/waitword.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <limits>

#include "platform/posix/futex.h"

namespace Platform {

namespace {

// The word that this thread sleeps on or last slept on. A wake that is given to a thread which is being ended
// would be lost to the others that wait there.
thread_local const void* volatile t_waitedWord [[gnu::tls_model("initial-exec")]] = nullptr;
thread_local const LastAct* volatile t_lastAct [[gnu::tls_model("initial-exec")]] = nullptr;

void Wake(const void* word, int count) {
    Futex(word, FUTEX_WAKE_PRIVATE, static_cast<std::uint32_t>(count));
}

} // namespace

bool WaitOnWord(const void* word, std::uint32_t expected, std::int64_t microseconds) {
    t_waitedWord = word;
    // In nanoseconds, three centuries are the most.
    const std::int64_t longest = std::numeric_limits<std::int64_t>::max() / 1000;
    const std::int64_t nanoseconds = microseconds < 0 ? -1 : std::min(microseconds, longest) * 1000;
    return Futex(word, FUTEX_WAIT_PRIVATE, expected, nanoseconds) == 0 || errno != ETIMEDOUT;
}

void WakeOneWaiter(const void* word) {
    Wake(word, 1);
}

void WakeAllWaiters(const void* word) {
    Wake(word, INT_MAX);
}

LastAct::LastAct(void (*act)(void* object), void* object) : m_act(act), m_object(object) {
    std::atomic_signal_fence(std::memory_order_seq_cst);
    t_lastAct = this;
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

LastAct::~LastAct() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
    t_lastAct = nullptr;
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

void AbandonWait() {
    const LastAct* last = t_lastAct;
    t_lastAct = nullptr;
    if (last != nullptr)
        last->Act();
    if (t_waitedWord != nullptr)
        Wake(t_waitedWord, 1);
}

} // namespace Platform
