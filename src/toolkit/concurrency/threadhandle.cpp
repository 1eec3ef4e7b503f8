#include "toolkit/concurrency/threadhandle.h"

#include "platform/forkhook.h"
#include "platform/globallock.h"

namespace Qzc::ThreadHandle {

namespace {

// Between reading a handle and counting the reference the handle must not be closed. One lock for all fields:
// it is held for a few instructions, and a thread takes microseconds to be made.
Platform::GlobalLock s_lock;

const bool s_forks = [] {
    static constexpr auto Release = [](void*) { s_lock.Unlock(); };
    static constexpr Platform::ForkLock s_forkLock = {[](void*) { s_lock.Lock(); }, Release, Release, nullptr};
    Platform::AddForkLock(Platform::ForkRank::ThreadHandles, s_forkLock);
    return true;
}();

/// Puts the handle into the field, which owns its reference, and closes the one that was there.
void Replace(std::atomic<void*>& field, Platform::Thread* thread) {
    const Platform::TerminationShield shield; // or nobody would close what was there
    s_lock.Lock();
    auto* before = static_cast<Platform::Thread*>(field.exchange(thread));
    s_lock.Unlock();
    Platform::CloseThread(before);
}

} // namespace

Shared::Shared(const std::atomic<void*>& field) {
    const Platform::GlobalLock::Guard guard(s_lock);
    m_thread = static_cast<Platform::Thread*>(field.load());
    if (m_thread != nullptr)
        Platform::KeepThread(*m_thread);
}

void Close(std::atomic<void*>& field) {
    Replace(field, nullptr);
}

void Close(std::atomic<void*>& field, Platform::Thread& thread) {
    const Platform::TerminationShield shield;
    s_lock.Lock();
    void* expected = &thread;
    const bool closes = field.compare_exchange_strong(expected, nullptr);
    s_lock.Unlock();
    if (closes)
        Platform::CloseThread(&thread);
}

bool Terminate(std::atomic<void*>& field) {
    bool isCurrent = false;
    {
        const Shared thread(field);
        isCurrent = thread && Platform::IsCurrentThread(*thread);
        if (!isCurrent) {
            if (!thread || !Platform::TerminateThread(*thread, 0))
                return false;
            Close(field, *thread);
        }
    }
    if (isCurrent) { // it does not come back, so nothing may be left to be given back
        Close(field);
        GetCurrent() = {};
        Platform::ExitThread(0);
    }
    return true;
}

bool Start(std::atomic<void*>& field, Platform::ThreadMain main, void* argument, std::size_t stackSize,
           Platform::ThreadPriority priority) {
    const Platform::TerminationShield shield;
    Platform::Thread* thread = Platform::NewThread(main, argument, stackSize, priority);
    if (thread != nullptr)
        Platform::KeepThread(*thread);
    Replace(field, thread);
    if (thread == nullptr)
        return false;
    const bool started = Platform::StartThread(*thread);
    if (!started)
        Close(field);
    Platform::CloseThread(thread);
    return started;
}

Current& GetCurrent() {
    static thread_local Current t_current;
    return t_current;
}

} // namespace Qzc::ThreadHandle
