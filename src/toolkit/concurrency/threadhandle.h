#pragma once

#include <atomic>

#include "platform/thread.h"

/// The handle field of a thread object, and the slot that holds the current thread's object. A thread clears
/// its own object's field while others read it, and the object may be deleted right behind that, so the field
/// is never guarded by anything inside the object.
namespace Qzc::ThreadHandle {

/// A reference of its own to a field's handle, for as long as this lives.
class Shared {
public:
    explicit Shared(const std::atomic<void*>& field);
    ~Shared() { Platform::CloseThread(m_thread); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    explicit operator bool() const { return m_thread != nullptr; }
    Platform::Thread& operator*() const { return *m_thread; }

private:
    Platform::Thread* m_thread;
};

/// Closes and clears the field, whatever handle is there.
void Close(std::atomic<void*>& field);

/// Closes and clears the field if it still holds this handle.
void Close(std::atomic<void*>& field, Platform::Thread& thread);

/// Ends the thread by force and clears the field. False when there is no handle or the system refuses.
bool Terminate(std::atomic<void*>& field);

/// Makes a thread and runs it. The field holds the handle before the thread takes its first step, and null
/// when it cannot be made. Uses nothing but the arguments: the thread may delete the field's object at any
/// moment.
bool Start(std::atomic<void*>& field, Platform::ThreadMain main, void* argument, std::size_t stackSize,
           Platform::ThreadPriority priority);

/// The platform's form of one of the toolkit's priorities: what is not listed counts as normal.
inline Platform::ThreadPriority ToPlatform(int priority) {
    return priority >= 1 && priority <= 5 ? static_cast<Platform::ThreadPriority>(priority)
                                          : Platform::ThreadPriority::Normal;
}

/// The object of the current thread, null in threads that this library did not start.
struct Current {
    void* object = nullptr;
    void (*leave)(void* object) = nullptr; ///< lets go of the object before the thread ends early
};
Current& GetCurrent();

} // namespace Qzc::ThreadHandle
