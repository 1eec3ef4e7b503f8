#include "toolkit/qzthread.h"

#include <chrono>
#include <thread>
#include <utility>

#include "toolkit/concurrency/threadhandle.h"

namespace Qzc {

namespace {

constexpr unsigned int NanosecondsPerMillisecond = 1000000;

} // namespace

QzThread::QzThread() = default;

QzThread::~QzThread() {
    cancel();
}

bool QzThread::start(unsigned long stackSize) {
    return ThreadHandle::Start(m_handle, execute, this, stackSize, Platform::ThreadPriority::Other);
}

int QzThread::execute(void* object) {
    auto* self = static_cast<QzThread*>(object);
    self->m_nThreadID = GetCurrentThreadId();
    ThreadHandle::GetCurrent() = {
        self, [](void* current) { ThreadHandle::Close(static_cast<QzThread*>(current)->m_handle); }};
    int result = -1;
    try {
        result = self->run();
    } catch (...) { // the caller's matter; it shows as the result
    }
    ThreadHandle::GetCurrent() = {};
    ThreadHandle::Close(self->m_handle); // the object may be gone from here on
    return result;
}

void* QzThread::id() const {
    return m_handle;
}

unsigned int QzThread::getcallingthreadid() {
    return m_nThreadID;
}

bool QzThread::running() const {
    return m_handle != nullptr;
}

bool QzThread::detach() {
    return running();
}

bool QzThread::join(int& exitCode) {
    const ThreadHandle::Shared thread(m_handle);
    if (!thread || !Platform::WaitForThread(*thread))
        return false;
    exitCode = Platform::ThreadExitCode(*thread);
    ThreadHandle::Close(m_handle, *thread);
    return true;
}

bool QzThread::join() {
    int ignored = 0;
    return join(ignored);
}

bool QzThread::cancel() {
    return ThreadHandle::Terminate(m_handle);
}

bool QzThread::priority(Priority value) {
    const ThreadHandle::Shared thread(m_handle);
    return thread && Platform::SetThreadPriority(*thread, ThreadHandle::ToPlatform(value));
}

QzThread::Priority QzThread::priority() const {
    const ThreadHandle::Shared thread(m_handle);
    auto priority = Platform::ThreadPriority::Other;
    if (!thread || !Platform::GetThreadPriority(*thread, priority))
        return static_cast<Priority>(-1);
    return static_cast<Priority>(priority);
}

bool QzThread::policy(Policy) {
    return true;
}

QzThread::Policy QzThread::policy() const {
    return DefaultPolicy;
}

unsigned int QzThread::GetCurrentThreadId() {
    return Platform::CurrentThreadId();
}

void* QzThread::current() {
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(GetCurrentThreadId()));
}

QzThread* QzThread::self() {
    return static_cast<QzThread*>(ThreadHandle::GetCurrent().object);
}

void QzThread::exit(int code) {
    const ThreadHandle::Current current = std::exchange(ThreadHandle::GetCurrent(), {});
    if (current.object != nullptr)
        current.leave(current.object);
    Platform::ExitThread(code);
}

void QzThread::yield() {
    std::this_thread::yield();
}

std::uint64_t QzThread::time() {
    using Ticks = std::chrono::duration<std::uint64_t, std::ratio<1, 10000000>>;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<Ticks>(now).count() * 100;
}

void QzThread::sleep(unsigned int ns) {
    const unsigned int milliseconds = ns / NanosecondsPerMillisecond;
    if (milliseconds == 0)
        yield();
    else
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void QzThread::wakeat(unsigned int deadline) {
    sleep(static_cast<unsigned int>(deadline - time()));
}

} // namespace Qzc
