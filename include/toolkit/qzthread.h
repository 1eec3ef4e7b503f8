#pragma once

#include <atomic>
#include <cstdint>

#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// A thread whose body is the virtual `run` of a derived class.
///
/// The handle is attached from `start` until `run` returns: the thread then closes and clears it by itself,
/// as its last step on this object. So `running` turns false by itself, a `join` that was under way returns
/// true, and one that comes later returns false.
///
/// Ending a thread by force (`cancel`, the destructor) stops it wherever it is and returns when it is gone.
/// It unwinds nothing, destroys no thread_local object and leaves what the thread holds as it is: a mutex
/// stays locked. It is let out of the memory allocator and of this library's own registries first; who must
/// not be ended so all the same, docs/threads.md tells. A thread that has blocked every signal is not reached. A
/// derived class whose `run` uses its members ends the thread in its own destructor; in ~QzThread those members are
/// gone.
///
/// Any thread may call these operations, except that `start` and the destructor are the owner's.
class MOTOOLKIT_API QzThread {
public:
    /// From the least to the most; each system has its own numbers for them.
    enum Priority : int { Unknown = 0, Idle = 1, BelowNormal = 2, Normal = 3, AboveNormal = 4, Highest = 5 };
    /// How the system is to choose among threads.
    enum Policy : int { DefaultPolicy = 0 }; ///< accepted everywhere, applied nowhere

    QzThread();
    virtual ~QzThread(); ///< ends a running thread by force
    QzThread(const QzThread&) = delete;
    QzThread& operator=(const QzThread&) = delete;

    /// Starts `run` in a new thread, with the priority of the calling one; the stack size is in bytes, 0 for
    /// the system's default. False when the system refuses. A thread that is already attached runs on but
    /// loses its handle to the new one, and as it ends it clears the new one's.
    bool start(unsigned long stackSize);

    void* id() const;                  ///< the handle, null when none is attached
    unsigned int getcallingthreadid(); ///< the thread's id as it wrote it itself at its start, 0 before
    bool running() const;              ///< whether a handle is attached
    bool detach();                     ///< the same; changes nothing

    /// Waits until the thread has ended and takes its result. False when no handle is attached, and at once
    /// when a thread would wait for itself.
    bool join(int& exitCode);
    bool join();

    /// Ends the thread by force; its exit code is 0. False when no handle is attached. A thread that cancels
    /// itself does not come back.
    bool cancel();

    /// Any value but those listed means normal, which is the process's own priority; the others are relative to it.
    /// False without a handle and when the system refuses: raising a priority, back to normal too, usually takes a
    /// privilege.
    bool priority(Priority value);
    Priority priority() const; ///< -1 without a handle, 0 when the system's value is none of the listed

    bool policy(Policy value); ///< does nothing, true
    Policy policy() const;     ///< always 0

    static unsigned int GetCurrentThreadId(); ///< the system's id
    static void* current();                   ///< the same as a pointer

    /// The object of the current thread; null in a thread that this library did not start. In the thread of a
    /// QzThreadEx it is that object, so do not use it as a QzThread there.
    static QzThread* self();

    /// Ends the calling thread with this exit code. Nothing is unwound, so no handler in the body catches it
    /// and no destructor of the body's objects runs; thread_local objects are destroyed. The handle is closed
    /// and cleared first: of those who wait only a `join` that is already under way gets the code. A managed
    /// QzThreadEx stays registered. A thread that this library did not start just stops.
    [[noreturn]] static void exit(int code);

    static void yield(); ///< lets other threads run first

    /// Nanoseconds since 1970-01-01 UTC, in steps of 100.
    static std::uint64_t time();

    /// Sleeps; whole milliseconds count, less than one only yields.
    static void sleep(unsigned int ns);

    /// Sleeps until `time()`, cut to 32 bits, reaches the deadline. A deadline that has passed wraps around
    /// to a sleep of up to 4.3 seconds.
    static void wakeat(unsigned int deadline);

protected:
    /// The thread's body; the result is its exit code. An exception that escapes makes it -1.
    virtual int run() = 0;

private:
    static int execute(void* object);

    std::atomic<void*> m_handle{nullptr};
    std::atomic<unsigned int> m_nThreadID{0};
};

} // namespace Qzc
