#pragma once

#include <cstddef>
#include <string_view>

#include "platform/export.h"

/// Threads, each behind a handle that is counted and outlives it. Any thread may call any of these functions.
namespace Platform {

class Thread;

using ThreadMain = int (*)(void* argument);

/// What ThreadExitCode says until the thread has ended. A thread may also end with this code.
constexpr int StillActive = 259;

/// Relative to the process: a normal thread in a program that was started with a lower priority has that.
enum class ThreadPriority { Other, Idle, BelowNormal, Normal, AboveNormal, Highest };

/// A thread that does not run yet; the caller owns one reference. Null when memory is short.
/// `stackSize` in bytes, 0 for the system's default. With `Other` it has the priority of the thread that
/// starts it; anything else is tried.
MOPLATFORM_API Thread* NewThread(ThreadMain main, void* argument, std::size_t stackSize, ThreadPriority priority);

/// Makes it run, once. False when the system refuses; the thread then counts as ended.
MOPLATFORM_API bool StartThread(Thread& thread);

MOPLATFORM_API void KeepThread(Thread& thread);  ///< one more reference
MOPLATFORM_API void CloseThread(Thread* thread); ///< one reference less; the thread itself runs on. Null is allowed.

/// Returns when the thread has ended and its thread_local objects are gone. False at once, without waiting,
/// in the thread itself.
MOPLATFORM_API bool WaitForThread(Thread& thread);

MOPLATFORM_API bool IsCurrentThread(const Thread& thread);
MOPLATFORM_API int ThreadExitCode(const Thread& thread);

/// The system's id of the thread; waits the moment that a new thread needs to know it. 0 if it never ran.
MOPLATFORM_API unsigned int ThreadId(Thread& thread);
MOPLATFORM_API unsigned int CurrentThreadId();

/// Whether the process has one thread at this moment, so that nobody can come in between two steps of it. False where
/// the system does not tell.
MOPLATFORM_API extern const volatile char& s_isOnlyThread;
inline bool IsOnlyThread() {
    return s_isOnlyThread != 0;
}

/// What the system's tools show for the calling thread: as much of the text as they take (15 bytes here; a character
/// of UTF-8 is not cut in two).
MOPLATFORM_API void SetCurrentThreadName(std::string_view name);

MOPLATFORM_API bool SetThreadPriority(Thread& thread, ThreadPriority priority);  ///< false when the system refuses
MOPLATFORM_API bool GetThreadPriority(Thread& thread, ThreadPriority& priority); ///< false when the thread has ended

/// Ends the thread by force and returns when it is gone. It takes no further step, wherever it is: nothing is
/// unwound, no thread_local object is destroyed and what it holds (locks, memory) stays held. Its stack is
/// given back. A thread that has ended stays ended with the code that it had. In the thread itself this is
/// ExitThread. False, and the thread runs on, when the system has no means for it or refuses for 2 seconds to take the
/// signal that it is done with; a thread that blocks every signal makes it wait. Where there are no signals: when it
/// does not leave the system's code, and does not sleep there, for 30 seconds.
MOPLATFORM_API bool TerminateThread(Thread& thread, int exitCode);

/// Ends the calling thread. Nothing is unwound, so no handler catches it. In a thread of this library the
/// thread_local objects are destroyed; any other thread just stops.
[[noreturn]] MOPLATFORM_API void ExitThread(int exitCode);

/// While one is up, the calling thread is not ended by force; a request in that time is met when the last one
/// goes. For short stretches that would leave the process unusable, such as the making of a thread.
MOPLATFORM_API void RaiseShield();
MOPLATFORM_API void LowerShield();

class TerminationShield {
public:
    TerminationShield() { RaiseShield(); }
    ~TerminationShield() { LowerShield(); }
    TerminationShield(const TerminationShield&) = delete;
    TerminationShield& operator=(const TerminationShield&) = delete;
};

} // namespace Platform
