#pragma once

/// fork() copies a process's memory and shares its open files, but only the calling thread goes on in the
/// child. What relies on its process's identity, or may be locked by another thread at that moment, is put
/// right here, before fork() returns in the child. Systems that do not fork have nothing to do.
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
class ForkHold {
public:
    ForkHold();
    ~ForkHold();
    ForkHold(const ForkHold&) = delete;
    ForkHold& operator=(const ForkHold&) = delete;
};

/// Hooks are called the newest first.
void AddForkHook(ForkHook& hook, const ForkHold&);
void RemoveForkHook(ForkHook& hook, const ForkHold&);

} // namespace Platform
