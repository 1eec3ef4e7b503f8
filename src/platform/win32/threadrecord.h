#pragma once

#include <atomic>

#include "platform/win32/system.h"

namespace Platform {

class LastAct;
class Thread;

/// What is known of a thread that has waited or is of this library. Another thread that has stopped it may read and
/// change it.
struct ThreadRecord {
    Thread* thread = nullptr; ///< null for one that the library did not start

    // How often it must not be ended now; and whether it is in a sleep that it may be ended in.
    std::atomic<int> shields{0};
    std::atomic<bool> sleeps{false};

    // Its place in the queue of those who wait for a word: see waitword.cpp.
    std::atomic<const void*> word{nullptr};
    std::atomic<const LastAct*> lastAct{nullptr};
    bool isCounted = false; ///< among the queue's waiters
    bool isQueued = false;
    ThreadRecord* next = nullptr;
    ThreadRecord* previous = nullptr;
    HANDLE wake = nullptr; ///< an event, set by who takes it out of the queue

    ThreadRecord() = default;
    ~ThreadRecord() {
        if (wake != nullptr)
            CloseHandle(wake);
    }
    ThreadRecord(const ThreadRecord&) = delete;
    ThreadRecord& operator=(const ThreadRecord&) = delete;
};

/// The calling thread's, made when there is none. Without memory the process cannot go on: it ends.
ThreadRecord& CurrentRecord();
/// Null when there is none.
ThreadRecord* FindCurrentRecord();

/// In place of a thread that is gone, or will not return from where it is: see AbandonWait.
void AbandonWaitOf(ThreadRecord& record);

} // namespace Platform
