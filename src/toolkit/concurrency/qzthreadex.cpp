#include "toolkit/qzthreadex.h"

#include <chrono>
#include <thread>

#include "toolkit/concurrency/threadhandle.h"
#include "toolkit/qzthreadmanager.h"

namespace Qzc {

QzThreadEx::QzThreadEx(const KeldMBString& name, int (*func)(void*), void* arg, unsigned char managed)
    : m_strName(name), m_func(func), m_arg(arg), m_bManaged(managed) {}

QzThreadEx::~QzThreadEx() {
    ThreadHandle::Close(m_handle);
}

unsigned int QzThreadEx::GetID() {
    if (m_nThreadID == 0) { // the new thread writes it, and may not have come to it
        const ThreadHandle::Shared thread(m_handle);
        if (thread)
            return Platform::ThreadId(*thread);
    }
    return m_nThreadID;
}

KeldMBString QzThreadEx::GetName() {
    return m_strName;
}

void QzThreadEx::SetStackSize(unsigned int size) {
    m_nStackSize = size;
}

void QzThreadEx::SetPolicy(Policy policy) {
    m_policy = policy;
}

bool QzThreadEx::SetPriority(Priority priority) {
    m_priority = priority;
    const ThreadHandle::Shared thread(m_handle);
    return !thread || Platform::SetThreadPriority(*thread, ThreadHandle::ToPlatform(priority));
}

QzThreadEx::Priority QzThreadEx::GetPriority() const {
    const ThreadHandle::Shared thread(m_handle);
    auto priority = Platform::ThreadPriority::Other;
    if (!thread || !Platform::GetThreadPriority(*thread, priority))
        return m_priority;
    return static_cast<Priority>(priority);
}

QzThreadEx::Thread_Status QzThreadEx::GetStatus() const {
    const ThreadHandle::Shared thread(m_handle);
    if (!thread)
        return StatusNone;
    return Platform::ThreadExitCode(*thread) == Platform::StillActive ? StatusRunning : StatusFinished;
}

bool QzThreadEx::IsAlive() const {
    return GetStatus() == StatusRunning;
}

bool QzThreadEx::Start() {
    if (IsAlive())
        return false;
    ThreadHandle::Close(m_handle);
    m_nThreadID = 0;
    m_owner = RunningThread;
    if (ThreadHandle::Start(m_handle, execute, this, m_nStackSize, ThreadHandle::ToPlatform(m_priority)))
        return true;
    m_owner = NoThread;
    return false;
}

int QzThreadEx::execute(void* object) {
    auto* self = static_cast<QzThreadEx*>(object);
    self->m_nThreadID = GetCurrentThreadId();
    Platform::SetCurrentThreadName(self->m_strName.View());
    ThreadHandle::GetCurrent() = {self, [](void* current) {
                                      auto* left = static_cast<QzThreadEx*>(current);
                                      QzThreadManager::GetInstance().Leave(left, true);
                                  }};
    try {
        self->m_nReturn = self->m_func(self->m_arg);
    } catch (...) { // leaves the return value as it is
    }
    ThreadHandle::GetCurrent() = {};
    const int exitCode = self->m_nReturn;
    QzThreadManager::GetInstance().Leave(self, false);
    return exitCode;
}

bool QzThreadEx::Join() {
    const ThreadHandle::Shared thread(m_handle);
    return thread && Platform::WaitForThread(*thread);
}

int QzThreadEx::GetReturnValue() {
    const ThreadHandle::Shared thread(m_handle);
    const int exitCode = thread ? Platform::ThreadExitCode(*thread) : 0;
    if (exitCode != Platform::StillActive)
        m_nReturn = exitCode;
    return m_nReturn;
}

void QzThreadEx::Sleep(std::uint64_t ms) {
    const auto milliseconds = static_cast<std::uint32_t>(ms);
    if (milliseconds == 0)
        SwitchToThread();
    else
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

bool QzThreadEx::SwitchToThread() {
    std::this_thread::yield();
    return true;
}

unsigned int QzThreadEx::GetCurrentThreadId() {
    return Platform::CurrentThreadId();
}

} // namespace Qzc
