#include "platform/thread.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <process.h>
#include <string>

#include "platform/waitword.h"
#include "platform/win32/handle.h"
#include "platform/win32/interruption.h"
#include "platform/win32/threadrecord.h"

// Ending a thread by force
// ------------------------
// The system ends a thread wherever it is. One in the middle of malloc would leave the heap locked, and soon the
// process would stand still; one with a shield would leave locked what this library shares. So the victim is stopped
// first and looked at. In its own code, or in a sleep of this library, it is ended. Elsewhere it goes on, and is
// stopped again a moment later. One that stands at the same place of the system's code all the while sleeps there, and
// is ended too, with the heap locked by who ends it: so it neither has the heap nor waits for it. One that moves about
// in the system's code for long is let go. While it is stopped, nothing may be called that takes a lock which it may
// hold: no allocation, above all.

namespace Platform {

class Thread {
public:
    enum class Phase { Starting, Body, Leaving };

    ThreadMain main = nullptr;
    void* argument = nullptr;
    std::size_t stackSize = 0;
    std::atomic<ThreadPriority> priority{ThreadPriority::Other};

    std::atomic<int> references{1};
    std::atomic<Phase> phase{Phase::Starting};
    std::atomic<bool> toTerminate{false};
    std::atomic<int> terminationCode{0};
    std::atomic<bool> isGone{false}; ///< never started, or ended by force
    std::atomic<int> exitCode{0};    ///< of one that is gone
    unsigned int id = 0;
    HANDLE handle = nullptr; ///< as long as the object lives

    // Made by the thread itself, or by the one that starts it.
    ThreadRecord record;

    Thread() = default;
    ~Thread() {
        if (handle != nullptr)
            CloseHandle(handle);
    }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    bool HasEnded() const {
        return isGone.load() || (handle != nullptr && WaitForSingleObject(handle, 0) == WAIT_OBJECT_0);
    }
};

namespace {

// The record of each thread that has one. What ends of itself gives it back by the function of the slot.
CALLED_BY_SYSTEM void WINAPI FinishThread(void* pointer);

DWORD RecordSlot() {
    static const DWORD s_slot = FlsAlloc(&FinishThread);
    return s_slot;
}

const bool s_located = (LocateSystemCode(), RecordSlot() != FLS_OUT_OF_INDEXES);

void WINAPI FinishThread(void* pointer) {
    auto* const record = static_cast<ThreadRecord*>(pointer);
    if (record == nullptr)
        return;
    FlsSetValue(RecordSlot(), nullptr);
    if (record->thread != nullptr)
        CloseThread(record->thread);
    else
        delete record;
}

Thread* CurrentThread() {
    const ThreadRecord* const record = FindCurrentRecord();
    return record != nullptr ? record->thread : nullptr;
}

bool IsDoomed(const Thread& self) {
    return self.toTerminate.load() && self.phase.load(std::memory_order_relaxed) == Thread::Phase::Body;
}

/// The calling thread's end without anything that a thread's end else brings.
[[noreturn]] void Vanish(int exitCode) {
    for (;;)
        ::TerminateThread(GetCurrentThread(), static_cast<DWORD>(exitCode));
}

[[noreturn]] void Die(Thread& self) {
    self.phase.store(Thread::Phase::Leaving);
    AbandonWaitOf(self.record);
    const int code = self.terminationCode.load();
    // Not the last reference: whoever ends a thread by force holds one until it is gone.
    self.references.fetch_sub(1);
    Vanish(code);
}

CALLED_BY_SYSTEM unsigned int __stdcall ThreadEntry(void* argument) {
    Thread& self = *static_cast<Thread*>(argument);
    FlsSetValue(RecordSlot(), &self.record);
    self.phase.store(Thread::Phase::Body);
    const int code = self.toTerminate.load() ? self.terminationCode.load() : self.main(self.argument);
    self.phase.store(Thread::Phase::Leaving);
    return static_cast<unsigned int>(code);
}

int SystemPriority(ThreadPriority priority) {
    switch (priority) {
    case ThreadPriority::Idle: return THREAD_PRIORITY_IDLE;
    case ThreadPriority::BelowNormal: return THREAD_PRIORITY_BELOW_NORMAL;
    case ThreadPriority::AboveNormal: return THREAD_PRIORITY_ABOVE_NORMAL;
    case ThreadPriority::Highest: return THREAD_PRIORITY_HIGHEST;
    default: return THREAD_PRIORITY_NORMAL;
    }
}

using Clock = std::chrono::steady_clock;
constexpr auto SleepsAfter = std::chrono::milliseconds(500);
constexpr auto LetGoAfter = std::chrono::seconds(30);

/// Where a thread was seen, each time that it was stopped.
class Whereabouts {
public:
    void See(const CONTEXT& context) {
#if defined(_WIN64)
        const std::uintptr_t code = context.Rip;
        const std::uintptr_t stack = context.Rsp;
#else
        const std::uintptr_t code = context.Eip;
        const std::uintptr_t stack = context.Esp;
#endif
        if (code != m_code || stack != m_stack)
            m_since = Clock::now();
        m_code = code;
        m_stack = stack;
    }
    bool IsAsleep() const {
        return m_code != 0 && Clock::now() - m_since >= SleepsAfter;
    }

private:
    std::uintptr_t m_code = 0;
    std::uintptr_t m_stack = 0;
    Clock::time_point m_since;
};

/// The process's heap, so that nobody else is in it.
class HeapHold {
public:
    explicit HeapHold(bool wanted) : m_heap(wanted ? GetProcessHeap() : nullptr) {
        if (m_heap != nullptr && HeapLock(m_heap) == 0)
            m_heap = nullptr;
    }
    ~HeapHold() {
        if (m_heap != nullptr)
            HeapUnlock(m_heap);
    }
    HeapHold(const HeapHold&) = delete;
    HeapHold& operator=(const HeapHold&) = delete;

private:
    HANDLE m_heap;
};

/// Whether it was ended: it stands at a place where that does no harm.
bool EndStopped(Thread& thread, Whereabouts& whereabouts, bool isAsleep) {
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_CONTROL;
    // Stopping is done when the context can be had.
    if (GetThreadContext(thread.handle, &context) == 0 || thread.record.shields.load() != 0 ||
        thread.phase.load() != Thread::Phase::Body)
        return false;
    whereabouts.See(context);
    const bool sleepsOn = isAsleep && whereabouts.IsAsleep(); // since before the heap was locked
    if (!thread.record.sleeps.load() && !sleepsOn && MayHoldSystemLock(context))
        return false;
    AbandonWaitOf(thread.record);
    thread.exitCode.store(thread.terminationCode.load());
    if (::TerminateThread(thread.handle, static_cast<DWORD>(thread.terminationCode.load())) == 0)
        return false;
    thread.references.fetch_sub(1); // the thread's own
    return true;
}

bool TryToEnd(Thread& thread, Whereabouts& whereabouts) {
    const TerminationShield shield; // else the victim could stay stopped
    const bool isAsleep = whereabouts.IsAsleep();
    const HeapHold heap(isAsleep);
    if (SuspendThread(thread.handle) == static_cast<DWORD>(-1))
        return false;
    const bool isEnded = EndStopped(thread, whereabouts, isAsleep);
    if (!isEnded)
        ResumeThread(thread.handle);
    return isEnded;
}

} // namespace

ThreadRecord* FindCurrentRecord() {
    return static_cast<ThreadRecord*>(FlsGetValue(RecordSlot()));
}

ThreadRecord& CurrentRecord() {
    ThreadRecord* record = FindCurrentRecord();
    if (record == nullptr) {
        record = new (std::nothrow) ThreadRecord;
        if (record == nullptr || FlsSetValue(RecordSlot(), record) == 0)
            std::abort();
    }
    if (record->wake == nullptr)
        record->wake = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (record->wake == nullptr)
        std::abort();
    return *record;
}

Thread* NewThread(ThreadMain main, void* argument, std::size_t stackSize, ThreadPriority priority) {
    const TerminationShield shield;
    auto* thread = new (std::nothrow) Thread;
    if (thread == nullptr)
        return nullptr;
    thread->main = main;
    thread->argument = argument;
    thread->stackSize = stackSize;
    thread->priority.store(priority);
    thread->record.thread = thread;
    thread->record.wake = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (thread->record.wake == nullptr) {
        delete thread;
        return nullptr;
    }
    return thread;
}

bool StartThread(Thread& thread) {
    const TerminationShield shield;
    constexpr std::size_t Least = 65536;
    const std::size_t size = thread.stackSize == 0 ? 0 : std::max(thread.stackSize, Least);
    KeepThread(thread); // the thread's own
    unsigned int id = 0;
    const bool fits = size <= std::min<std::size_t>(UINT_MAX, SIZE_MAX / 2); // more is rounded up to nothing
    const std::uintptr_t handle = fits ? _beginthreadex(nullptr, static_cast<unsigned int>(size), ThreadEntry, &thread,
                                                        CREATE_SUSPENDED | STACK_SIZE_PARAM_IS_A_RESERVATION, &id)
                                       : 0;
    if (handle == 0) {
        thread.isGone.store(true);
        CloseThread(&thread);
        return false;
    }
    thread.handle = reinterpret_cast<HANDLE>(handle);
    thread.id = id;
    const ThreadPriority priority = thread.priority.load();
    ::SetThreadPriority(thread.handle, priority == ThreadPriority::Other ? ::GetThreadPriority(GetCurrentThread())
                                                                         : SystemPriority(priority));
    ResumeThread(thread.handle);
    return true;
}

void KeepThread(Thread& thread) {
    thread.references.fetch_add(1, std::memory_order_relaxed);
}

void CloseThread(Thread* thread) {
    if (thread != nullptr && thread->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        const TerminationShield shield;
        delete thread;
    }
}

bool WaitForThread(Thread& thread) {
    ThreadRecord& self = CurrentRecord();
    if (self.thread == &thread)
        return false;
    if (thread.handle == nullptr)
        return true;
    self.sleeps.store(true);
    WaitForSingleObject(thread.handle, INFINITE);
    self.sleeps.store(false);
    return true;
}

bool IsCurrentThread(const Thread& thread) {
    return CurrentThread() == &thread;
}

int ThreadExitCode(const Thread& thread) {
    if (!thread.HasEnded())
        return StillActive;
    DWORD code = 0;
    return thread.handle != nullptr && GetExitCodeThread(thread.handle, &code) != 0 ? static_cast<int>(code)
                                                                                    : thread.exitCode.load();
}

unsigned int ThreadId(Thread& thread) {
    return thread.id;
}

unsigned int CurrentThreadId() {
    return GetCurrentThreadId();
}

namespace {

const volatile char s_false = 0;

} // namespace

const volatile char& s_isOnlyThread = s_false;

void SetCurrentThreadName(std::string_view name) {
    using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    static const auto s_set = reinterpret_cast<SetDescription>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "SetThreadDescription")));
    if (s_set == nullptr)
        return;
    std::array<wchar_t, 256> wide = {};
    MultiByteToWideChar(CP_UTF8, 0, name.data(), static_cast<int>(std::min<std::size_t>(name.size(), 255)), wide.data(),
                        static_cast<int>(wide.size()) - 1);
    s_set(GetCurrentThread(), wide.data());
}

bool SetThreadPriority(Thread& thread, ThreadPriority priority) {
    if (thread.handle == nullptr || thread.HasEnded() ||
        ::SetThreadPriority(thread.handle, SystemPriority(priority)) == 0)
        return false;
    thread.priority.store(priority);
    return true;
}

bool GetThreadPriority(Thread& thread, ThreadPriority& priority) {
    if (thread.handle == nullptr || thread.HasEnded())
        return false;
    const int now = ::GetThreadPriority(thread.handle);
    using P = ThreadPriority;
    priority = P::Other;
    for (const P candidate : {P::Normal, P::Idle, P::BelowNormal, P::AboveNormal, P::Highest}) {
        if (SystemPriority(candidate) == now)
            priority = candidate;
    }
    return now != THREAD_PRIORITY_ERROR_RETURN;
}

bool TerminateThread(Thread& thread, int exitCode) {
    if (IsCurrentThread(thread))
        ExitThread(exitCode);
    if (thread.handle == nullptr || thread.HasEnded())
        return WaitForThread(thread);
    thread.terminationCode.store(exitCode);
    thread.toTerminate.store(true);
    const auto limit = Clock::now() + LetGoAfter;
    Whereabouts whereabouts;
    for (int tries = 1; !thread.HasEnded() && !TryToEnd(thread, whereabouts); ++tries) {
        if (Clock::now() >= limit) {
            thread.toTerminate.store(false);
            return false;
        }
        // It has to get on in between, and to be met in another place.
        if (WaitForSingleObject(thread.handle, tries % 4 == 0 ? 1 : 0) == WAIT_TIMEOUT)
            SwitchToThread();
    }
    return WaitForThread(thread);
}

void ExitThread(int exitCode) {
    Thread* const self = CurrentThread();
    if (self == nullptr)
        Vanish(exitCode);
    self->phase.store(Thread::Phase::Leaving);
    _endthreadex(static_cast<unsigned int>(exitCode));
    std::abort();
}

void RaiseShield() {
    ThreadRecord* const record = FindCurrentRecord();
    if (record != nullptr)
        record->shields.fetch_add(1, std::memory_order_seq_cst);
}

void LowerShield() {
    ThreadRecord* const record = FindCurrentRecord();
    if (record == nullptr || record->shields.load(std::memory_order_relaxed) == 0)
        return;
    if (record->shields.fetch_sub(1, std::memory_order_seq_cst) == 1 && record->thread != nullptr &&
        IsDoomed(*record->thread))
        Die(*record->thread);
}

} // namespace Platform
