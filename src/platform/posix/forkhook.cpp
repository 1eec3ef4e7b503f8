#include "platform/forkhook.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <pthread.h>

#include "platform/globallock.h"

namespace Platform {

namespace {

using ForkLocks = std::array<const ForkLock*, static_cast<std::size_t>(ForkRank::Count)>;

// Nothing of this needs construction or destruction: objects that live as long as the process may use it.
GlobalLock s_hold;
ForkHook* s_newest = nullptr;
std::array<std::atomic<const ForkLock*>, std::tuple_size_v<ForkLocks>> s_locks;
ForkLocks s_taken; // by the fork that has the hold

ForkLocks AllLocks() {
    ForkLocks locks = {};
    for (std::size_t rank = 0; rank < locks.size(); ++rank)
        locks[rank] = s_locks[rank].load();
    return locks;
}

void GiveBack(const ForkLocks& locks, void (*ForkLock::*way)(void*)) {
    for (const ForkLock* lock : locks) {
        if (lock != nullptr)
            (lock->*way)(lock->object);
    }
}

void BeforeFork() {
    for (;;) {
        const ForkLocks locks = AllLocks();
        for (auto lock = locks.rbegin(); lock != locks.rend(); ++lock) {
            if (*lock != nullptr)
                (*lock)->before((*lock)->object);
        }
        s_hold.Lock();
        if (locks == AllLocks()) {
            s_taken = locks;
            return;
        }
        s_hold.Unlock(); // one was added meanwhile, and its holder is not known
        GiveBack(locks, &ForkLock::inParent);
    }
}

void AfterForkInParent() {
    const ForkLocks taken = s_taken;
    s_hold.Unlock();
    GiveBack(taken, &ForkLock::inParent);
}

void AfterForkInChild() {
    GiveBack(s_taken, &ForkLock::inChild);
    for (const ForkHook* hook = s_newest; hook != nullptr; hook = hook->older)
        hook->inChild(hook->object);
    s_hold.Unlock();
}

void ListenToForks() {
    const TerminationShield shield; // one that is ended in here would leave the static shut
    static const int s_registered = [] {
        CurrentThreadId(); // whose own care for the child comes first
        return pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
    }();
    static_cast<void>(s_registered);
}

void Unlink(ForkHook& hook) {
    (hook.newer != nullptr ? hook.newer->older : s_newest) = hook.older;
    if (hook.older != nullptr)
        hook.older->newer = hook.newer;
}

} // namespace

ForkHold::ForkHold() {
    ListenToForks();
    s_hold.Lock();
}

ForkHold::~ForkHold() {
    s_hold.Unlock();
}

void AddForkHook(ForkHook& hook, const ForkHold&) {
    hook.older = s_newest;
    hook.newer = nullptr;
    if (s_newest != nullptr)
        s_newest->newer = &hook;
    s_newest = &hook;
}

void RemoveForkHook(ForkHook& hook, const ForkHold&) {
    Unlink(hook);
}

void ForgetForkHooks(const void* begin, const void* end) {
    const auto lies = [=](const void* address) {
        return !std::less<>()(address, begin) && std::less<>()(address, end);
    };
    s_hold.Lock();
    for (ForkHook* hook = s_newest; hook != nullptr;) {
        ForkHook* older = hook->older;
        if (lies(hook) || lies(hook->object))
            Unlink(*hook);
        hook = older;
    }
    s_hold.Unlock();
}

void AddForkLock(ForkRank rank, const ForkLock& lock) {
    ListenToForks();
    s_locks[static_cast<std::size_t>(rank)].store(&lock);
}

} // namespace Platform
