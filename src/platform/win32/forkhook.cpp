#include "platform/forkhook.h"

#include "platform/globallock.h"

// This system does not fork. A hold is still a lock: what it guards is changed by one thread at a time.

namespace Platform {

namespace {

GlobalLock s_hold;

} // namespace

ForkHold::ForkHold() {
    s_hold.Lock();
}

ForkHold::~ForkHold() {
    s_hold.Unlock();
}

void AddForkHook(ForkHook&, const ForkHold&) {}

void RemoveForkHook(ForkHook&, const ForkHold&) {}

void ForgetForkHooks(const void*, const void*) {}

void AddForkLock(ForkRank, const ForkLock&) {}

} // namespace Platform
