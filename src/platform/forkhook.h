#pragma once

#include "platform/export.h"

/// fork() copies a process's memory and shares its open files, but only the calling thread goes on in the
/// child. What relies on its process's identity, or may be locked by another thread at that moment, is put
/// right here, before fork() returns in the child. Systems that do not fork have nothing to do.
///
/// The order of a fork:
///   before it      the ForkLocks, from the highest rank down; then the hold, which a ForkHold is too
///   in the parent  the hold is given back; then the ForkLocks' `inParent`, from the lowest rank up
///   in the child   the ForkLocks' `inChild`, from the lowest rank up; then the ForkHooks, the newest first, which may
///                  already use what the locks guard; then the hold is given back
/// So who holds a ForkLock may take those of lower ranks and make a ForkHold; who has a ForkHold takes no ForkLock. The
/// forking thread is not ended by force in all that time, and a child is not ended for its parent's sake.
namespace Platform {

/// What is to be called in the child. It belongs to its user and stays where it is while it is added.
struct ForkHook {
    void (*inChild)(void* object);
    void* object;
    ForkHook* older = nullptr;
    ForkHook* newer = nullptr;
};

/// While one lives, another thread's fork() waits: for changes that the child must find done or not begun.
/// The thread that has it must not fork, nor make a second one.
class MOPLATFORM_API ForkHold {
public:
    ForkHold();
    ~ForkHold();
    ForkHold(const ForkHold&) = delete;
    ForkHold& operator=(const ForkHold&) = delete;
};

MOPLATFORM_API void AddForkHook(ForkHook& hook, const ForkHold&);
MOPLATFORM_API void RemoveForkHook(ForkHook& hook, const ForkHold&);

/// Removes the hooks that lie in this memory or are for an object there: a stack that is given back while nobody
/// destroys what is on it.
MOPLATFORM_API void ForgetForkHooks(const void* begin, const void* end);

/// The places of the process's locks. A thread that holds one may take those before it.
enum class ForkRank { ThreadHandles, ThreadRegistry, Log, Count };

/// A lock that is taken for the time of a fork, so that the child finds whole what it guards. It lives as long as the
/// process.
struct ForkLock {
    void (*before)(void* object);   ///< takes it; may be followed by `inParent` and a second `before` without a fork
    void (*inParent)(void* object); ///< gives it back
    void (*inChild)(void* object);  ///< the same, and puts right what is no longer so
    void* object;
};

/// From now on every fork takes the lock. One for each rank; any thread, whatever it holds; best when the library is
/// loaded.
MOPLATFORM_API void AddForkLock(ForkRank rank, const ForkLock& lock);

} // namespace Platform
