#include "platform/waitword.h"

#include <algorithm>
#include <array>
#include <limits>

#include "platform/thread.h"
#include "platform/win32/threadrecord.h"

// The system's own wait on an address keeps its queue on the waiters' stacks. A thread that is ended by force stays in
// it and swallows wakes, so the queues are kept here: a waiter's place lies in its record, out of which whoever ends it
// takes it.

namespace Platform {

namespace {

/// Held for a few instructions, never by a thread that may be ended meanwhile.
class SpinLock {
public:
    void Lock() {
        for (int i = 0; m_locked.exchange(true, std::memory_order_acquire); ++i) {
            if (i < 64)
                PauseSpinning();
            else
                SwitchToThread();
        }
    }
    void Unlock() { m_locked.store(false, std::memory_order_release); }

private:
    std::atomic<bool> m_locked{false};
};

struct Queue {
    SpinLock lock;
    std::atomic<int> waiters{0}; ///< those who have looked at the word or are about to
    ThreadRecord* first = nullptr;
    ThreadRecord* last = nullptr;

    void Append(ThreadRecord& record) {
        record.isQueued = true;
        record.next = nullptr;
        record.previous = last;
        (last != nullptr ? last->next : first) = &record;
        last = &record;
    }
    void Remove(ThreadRecord& record) {
        record.isQueued = false;
        (record.previous != nullptr ? record.previous->next : first) = record.next;
        (record.next != nullptr ? record.next->previous : last) = record.previous;
    }
};

std::array<Queue, 256> s_queues;

Queue& QueueOf(const void* word) {
    const auto address = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(word));
    return s_queues[static_cast<std::size_t>((address >> 2) * 0x9E3779B97F4A7C15 >> 56)];
}

// Who holds a queue is not ended: others would wait for the lock for ever.
class QueueGuard {
public:
    explicit QueueGuard(Queue& queue) : m_queue(queue) {
        RaiseShield();
        m_queue.lock.Lock();
    }
    ~QueueGuard() {
        m_queue.lock.Unlock();
        LowerShield();
    }
    QueueGuard(const QueueGuard&) = delete;
    QueueGuard& operator=(const QueueGuard&) = delete;

private:
    Queue& m_queue;
};

void Wake(const void* word, bool all) {
    Queue& queue = QueueOf(word);
    // The caller has changed the word: either a waiter is counted, or it will see the change.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (queue.waiters.load(std::memory_order_relaxed) == 0)
        return;
    const QueueGuard guard(queue);
    for (ThreadRecord* record = queue.first; record != nullptr;) {
        ThreadRecord* const next = record->next;
        if (record->word.load(std::memory_order_relaxed) == word) {
            queue.Remove(*record);
            SetEvent(record->wake); // in here: its owner cannot be gone before
            if (!all)
                return;
        }
        record = next;
    }
}

DWORD Milliseconds(std::int64_t microseconds) {
    if (microseconds < 0)
        return INFINITE;
    constexpr std::int64_t Longest = INFINITE - 1;
    return static_cast<DWORD>(std::min(microseconds / 1000 + (microseconds % 1000 != 0 ? 1 : 0), Longest));
}

} // namespace

bool WaitOnWord(const void* word, std::uint32_t expected, std::int64_t microseconds) {
    ThreadRecord& record = CurrentRecord();
    Queue& queue = QueueOf(word);
    record.word.store(word, std::memory_order_relaxed);
    {
        const QueueGuard guard(queue);
        queue.waiters.fetch_add(1);
        if (static_cast<const std::atomic<std::uint32_t>*>(word)->load() != expected) {
            queue.waiters.fetch_sub(1, std::memory_order_relaxed);
            return true;
        }
        queue.Append(record);
        record.isCounted = true;
    }
    record.sleeps.store(true);
    bool isWoken = WaitForSingleObject(record.wake, Milliseconds(microseconds)) == WAIT_OBJECT_0;
    record.sleeps.store(false);
    const QueueGuard guard(queue);
    queue.waiters.fetch_sub(1, std::memory_order_relaxed);
    record.isCounted = false;
    if (record.isQueued) {
        queue.Remove(record);
    } else if (!isWoken) { // at the last moment
        WaitForSingleObject(record.wake, INFINITE);
        isWoken = true;
    }
    return isWoken;
}

void WakeOneWaiter(const void* word) {
    Wake(word, false);
}

void WakeAllWaiters(const void* word) {
    Wake(word, true);
}

LastAct::LastAct(void (*act)(void* object), void* object) : m_act(act), m_object(object) {
    CurrentRecord().lastAct.store(this);
}

LastAct::~LastAct() {
    CurrentRecord().lastAct.store(nullptr);
}

void AbandonWaitOf(ThreadRecord& record) {
    const LastAct* const last = record.lastAct.exchange(nullptr);
    if (last != nullptr)
        last->Act();
    const void* const word = record.word.exchange(nullptr);
    if (word == nullptr)
        return;
    if (record.isCounted) {
        Queue& queue = QueueOf(word);
        const QueueGuard guard(queue);
        record.isCounted = false;
        queue.waiters.fetch_sub(1, std::memory_order_relaxed);
        if (record.isQueued)
            queue.Remove(record);
    }
    WakeOneWaiter(word); // it may have got one that it will not act upon
}

void AbandonWait() {
    ThreadRecord* const record = FindCurrentRecord();
    if (record != nullptr)
        AbandonWaitOf(*record);
}

} // namespace Platform
