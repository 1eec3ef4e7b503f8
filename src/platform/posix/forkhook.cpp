#include "platform/forkhook.h"

#include <mutex>
#include <pthread.h>

namespace Platform {

namespace {

// Neither needs construction or destruction: objects that live as long as the process may use them.
std::mutex s_mutex;
ForkHook* s_newest = nullptr;

void BeforeFork() {
    s_mutex.lock();
}

void AfterForkInParent() {
    s_mutex.unlock();
}

void AfterForkInChild() {
    for (const ForkHook* hook = s_newest; hook != nullptr; hook = hook->older)
        hook->inChild(hook->object);
    s_mutex.unlock();
}

} // namespace

ForkHold::ForkHold() {
    static const int s_registered = pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
    static_cast<void>(s_registered);
    s_mutex.lock();
}

ForkHold::~ForkHold() {
    s_mutex.unlock();
}

void AddForkHook(ForkHook& hook, const ForkHold&) {
    hook.older = s_newest;
    hook.newer = nullptr;
    if (s_newest != nullptr)
        s_newest->newer = &hook;
    s_newest = &hook;
}

void RemoveForkHook(ForkHook& hook, const ForkHold&) {
    (hook.newer != nullptr ? hook.newer->older : s_newest) = hook.older;
    if (hook.older != nullptr)
        hook.older->newer = hook.newer;
}

} // namespace Platform
