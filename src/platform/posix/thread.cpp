#include "platform/thread.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csetjmp>
#include <csignal>
#include <cstdint>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/single_threaded.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/forkhook.h"
#include "platform/posix/interruption.h"
#include "platform/sanitizer.h"
#include "platform/waitword.h"

// Ending a thread by force
// ------------------------
// pthread_cancel unwinds the victim's stack, and a body with catch (...) then takes the process down. So a
// signal goes to the victim instead, and its handler ends the thread where it stands, with the system call
// that ends one thread. The C library's records stay sound, since what it relies on is done by the kernel:
// the thread is joinable, the kernel clears its id as the last thing, and pthread_join, called by one of
// those who wait, then takes the stack back. Two things are left to do here. The next thread on that stack
// would find the victim's thread-specific data, so the handler clears it. And the C library's count of its
// threads stays one too high, which it uses only to call exit() when the main thread has left by pthread_exit
// before the others.
//
// A victim in the middle of malloc would leave the heap locked, and soon the process would stand still. So
// the handler lets a victim go on that was interrupted in the C library, and the signal is sent again a
// moment later. One that never leaves the library is ended all the same after a while.
//
// ThreadSanitizer takes a thread that vanishes like this for running, and waits for it for ever. Built with
// it, the victim leaps out of its body and ends as threads do.

namespace Platform {

class Thread {
public:
    // Who takes the stack back. A thread that nobody waits for detaches itself at its end. One that is waited
    // for stays joinable, and of those who wait one joins it: at its end, or right away if the one who waits
    // cannot be ended by force, which would leave the join half done.
    enum State : std::uint32_t {
        Running,
        RunningAwaited,
        RunningJoined,
        Ended,   ///< to be joined
        Joining, ///< somebody does
        Gone
    };
    enum class Phase { Starting, Body, Leaving };

    static constexpr std::uint32_t IdAwaited = 0xFFFFFFFF;
    static constexpr std::uint32_t NoId = 0xFFFFFFFE; ///< the thread could not be started

    ThreadMain main = nullptr;
    void* argument = nullptr;
    std::size_t stackSize = 0;
    std::atomic<ThreadPriority> priority{ThreadPriority::Other}; ///< the last one that was asked for

    std::atomic<int> references{1};
    std::atomic<std::uint32_t> state{Running};
    std::atomic<std::uint32_t> id{0}; ///< 0 until the thread has told it
    std::atomic<bool> toTerminate{false};
    std::atomic<bool> atAnyPlace{false}; ///< no more consideration for where it is
    std::atomic<int> terminationCode{0};
    int exitCode = 0;                ///< valid from `Ended` on
    std::atomic<pthread_t> handle{}; ///< valid from `isStarted` or `Ended` on
    std::atomic<bool> isStarted{false};

    // Used by the thread itself, also in its signal handler.
    std::atomic<Phase> phase{Phase::Starting};
    std::jmp_buf* leaveBody = nullptr;
    const char* stackTop = nullptr; ///< `stackSize` bytes end there

    bool HasEnded() const {
        const std::uint32_t now = state.load(std::memory_order_acquire);
        return now >= Ended;
    }
};

namespace {

// The initial-exec model keeps the first access, which may happen in the signal handler, from allocating.
thread_local Thread* t_current [[gnu::tls_model("initial-exec")]] = nullptr;
thread_local volatile int t_shields [[gnu::tls_model("initial-exec")]] = 0;

bool IsDoomed(const Thread& self) {
    return self.toTerminate.load() && self.phase.load(std::memory_order_relaxed) == Thread::Phase::Body;
}

/// Ends the thread with nothing but the system's help. Its thread-specific data would be found, and in the end
/// destroyed again, by the next thread that gets this stack.
[[noreturn]] void Vanish() {
    for (unsigned int key = 0; key < PTHREAD_KEYS_MAX; ++key)
        pthread_setspecific(key, nullptr);
    for (;;)
        syscall(SYS_exit, 0);
}

void EndAwaited(Thread& self) {
    std::uint32_t state = self.state.load();
    while (!self.state.compare_exchange_weak(state, state == Thread::RunningJoined ? Thread::Joining : Thread::Ended)) {
    }
    if (state != Thread::RunningJoined) // else the end of the join wakes whoever else waits
        WakeAllWaiters(&self.state);
}

[[noreturn]] void VanishAsEnded(Thread& self) {
    EndAwaited(self);
    // Not the last reference: whoever ends a thread by force holds one until it has joined it.
    self.references.fetch_sub(1, std::memory_order_release);
    Vanish();
}

/// What is left on the stack without being destroyed must not be looked for there.
void ForgetStack(const Thread& self) {
    ForgetForkHooks(self.stackTop - self.stackSize, self.stackTop);
}

[[noreturn]] void Die(Thread& self) {
    self.phase.store(Thread::Phase::Leaving, std::memory_order_relaxed);
    self.exitCode = self.terminationCode.load();
    AbandonWait();
    ForgetStack(self);
#if UNDER_THREAD_SANITIZER
    std::longjmp(*self.leaveBody, 1);
#else
    VanishAsEnded(self);
#endif
}

void OnTerminationSignal(int, siginfo_t*, void* context) {
    Thread* self = t_current;
    if (self == nullptr || t_shields != 0 || !IsDoomed(*self))
        return;
#if !UNDER_THREAD_SANITIZER // there the signal comes where the sanitizer's own code is in order
    if (!self->atAnyPlace.load() && MayHoldSystemLock(context))
        return;
#else
    static_cast<void>(context);
#endif
    Die(*self);
}

bool IsOurs(int signal) {
    struct sigaction action = {};
    return sigaction(signal, nullptr, &action) == 0 && (action.sa_flags & SA_SIGINFO) != 0 &&
           action.sa_sigaction == OnTerminationSignal;
}

long Send(unsigned int thread, int signal) {
    return syscall(SYS_tgkill, getpid(), thread, signal);
}

// Takes the highest real-time signal that nobody handles. 0 when there is none.
int ReserveSignal() {
    for (int number = SIGRTMAX; number >= SIGRTMIN; --number) {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) != 0 || (action.sa_flags & SA_SIGINFO) != 0 ||
            action.sa_handler != SIG_DFL)
            continue;
        action.sa_sigaction = OnTerminationSignal;
        action.sa_flags = SA_SIGINFO;
        sigfillset(&action.sa_mask);
        if (sigaction(number, &action, nullptr) != 0)
            continue;
        // An emulator may let a signal be handled that it cannot send. To this thread it says nothing.
        if (Send(CurrentThreadId(), number) == 0 || errno == EAGAIN)
            return number;
        action.sa_handler = SIG_DFL;
        action.sa_flags = 0;
        sigaction(number, &action, nullptr);
    }
    return 0;
}

const bool s_located = (LocateSystemCode(), true);
std::atomic<int> s_signal{0};

// The signal, reserved on the first call. A program that later handles it itself, unknowing, gets it: then this takes
// another one.
int UsableSignal() {
    int signal = s_signal.load();
    while (signal == 0 || !IsOurs(signal)) {
        const int reserved = ReserveSignal();
        if (reserved == 0 || s_signal.compare_exchange_strong(signal, reserved))
            return reserved;
    }
    return signal;
}

int ReservedSignal() {
    const int signal = s_signal.load();
    return signal != 0 ? signal : UsableSignal();
}

void Join(Thread& thread) {
    pthread_join(thread.handle, nullptr);
    thread.state.store(Thread::Gone, std::memory_order_release);
    WakeAllWaiters(&thread.state);
}

// Runs after the destructors of all thread_local objects.
void FinishThread(void* argument) {
    auto* self = static_cast<Thread*>(argument);
    t_current = nullptr;
    std::uint32_t expected = Thread::Running;
    if (self->state.compare_exchange_strong(expected, Thread::Gone))
        pthread_detach(pthread_self());
    else
        EndAwaited(*self);
    CloseThread(self);
}

// The destructors of thread-specific data come after those of thread_local objects, and need no allocation.
pthread_key_t FinishKey() {
    const TerminationShield shield;
    static const pthread_key_t s_key = [] {
        pthread_key_t key = {};
        pthread_key_create(&key, FinishThread);
        return key;
    }();
    return s_key;
}

void RunBody(Thread& self) {
    std::jmp_buf leave;
    self.leaveBody = &leave;
    if (setjmp(leave) == 0) {
        self.phase.store(Thread::Phase::Body, std::memory_order_relaxed);
        self.exitCode = self.toTerminate.load() ? self.terminationCode.load() : self.main(self.argument);
    }
    self.phase.store(Thread::Phase::Leaving, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

constexpr int LowestNice = 19;
constexpr int HighestNice = -20;

/// Relative to the process, whose own value is that of its main thread: a thread without a priority of its own must
/// not overtake the others because the program was started with nice. Next to the lowest value two priorities may be
/// the same to the system.
int NiceValue(ThreadPriority priority) {
    const int normal = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
    switch (priority) {
    case ThreadPriority::Idle: return LowestNice;
    case ThreadPriority::BelowNormal: return normal + (LowestNice - normal + 1) / 2;
    case ThreadPriority::AboveNormal: return std::max(normal - 5, HighestNice);
    case ThreadPriority::Highest: return std::max(normal - 10, HighestNice);
    default: return normal;
    }
}

bool SetNice(unsigned int id, ThreadPriority priority) {
    return setpriority(PRIO_PROCESS, id, NiceValue(priority)) == 0;
}

void* ThreadEntry(void* argument) {
    Thread& self = *static_cast<Thread*>(argument);
    t_current = &self;
    self.stackTop = static_cast<const char*>(__builtin_frame_address(0));
    self.handle.store(pthread_self());
    pthread_setspecific(FinishKey(), argument);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, ReservedSignal());
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    const unsigned int id = CurrentThreadId();
    const ThreadPriority priority = self.priority.load();
    if (priority != ThreadPriority::Other)
        SetNice(id, priority);
    // From here on the thread can be found. A request that came earlier is seen by RunBody.
    if (self.id.exchange(id) == Thread::IdAwaited)
        WakeAllWaiters(&self.id);
    RunBody(self);
    return nullptr;
}

class Attributes {
public:
    explicit Attributes(std::size_t stackSize) {
        // Less than this does not carry the C++ library's own calls.
        constexpr std::size_t Least = 65536;
        constexpr std::size_t Page = 4096;
        pthread_attr_init(&m_attributes);
        if (stackSize == 0)
            return;
        stackSize = std::max({stackSize, Least, static_cast<std::size_t>(sysconf(_SC_THREAD_STACK_MIN))});
        m_good = stackSize <= SIZE_MAX - Page &&
                 pthread_attr_setstacksize(&m_attributes, (stackSize + Page - 1) / Page * Page) == 0;
    }
    ~Attributes() { pthread_attr_destroy(&m_attributes); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    bool IsGood() const { return m_good; }
    const pthread_attr_t* Get() const { return &m_attributes; }
    std::size_t StackSize() const {
        std::size_t size = 0;
        pthread_attr_getstacksize(&m_attributes, &size);
        return size;
    }

private:
    pthread_attr_t m_attributes = {};
    bool m_good = true;
};

bool CreateSystemThread(Thread& thread) {
    ReservedSignal(); // reserved before there is a thread to send it to
    pthread_t handle = {};
    const Attributes attributes(thread.stackSize);
    thread.stackSize = attributes.StackSize();
    if (!attributes.IsGood() || pthread_create(&handle, attributes.Get(), ThreadEntry, &thread) != 0)
        return false;
    thread.handle.store(handle); // the thread does the same; whoever comes first
    thread.isStarted.store(true);
    return true;
}

} // namespace

Thread* NewThread(ThreadMain main, void* argument, std::size_t stackSize, ThreadPriority priority) {
    const TerminationShield shield;
    auto* thread = new (std::nothrow) Thread;
    if (thread != nullptr) {
        thread->main = main;
        thread->argument = argument;
        thread->stackSize = stackSize;
        thread->priority.store(priority);
    }
    return thread;
}

bool StartThread(Thread& thread) {
    const TerminationShield shield;
    KeepThread(thread); // the thread's own
    if (CreateSystemThread(thread))
        return true;
    if (thread.id.exchange(Thread::NoId) == Thread::IdAwaited)
        WakeAllWaiters(&thread.id);
    thread.state.store(Thread::Gone);
    WakeAllWaiters(&thread.state);
    CloseThread(&thread);
    return false;
}

void KeepThread(Thread& thread) {
    thread.references.fetch_add(1, std::memory_order_relaxed);
}

void CloseThread(Thread* thread) {
    if (thread == nullptr || thread->references.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    const TerminationShield shield;
    if (thread->state.load(std::memory_order_acquire) == Thread::Ended) { // those who waited were ended by force
        if (pthread_equal(thread->handle, pthread_self()) != 0)
            pthread_detach(thread->handle);
        else
            pthread_join(thread->handle, nullptr);
    }
    delete thread;
}

bool WaitForThread(Thread& thread) {
    if (&thread == t_current)
        return false;
    std::uint32_t state = thread.state.load(std::memory_order_acquire);
    while (state != Thread::Gone) {
        const bool joinsNow = t_current == nullptr && thread.isStarted.load() &&
                              (state == Thread::Running || state == Thread::RunningAwaited);
        if (joinsNow) {
            if (thread.state.compare_exchange_strong(state, Thread::RunningJoined))
                Join(thread);
        } else if (state == Thread::Running) {
            thread.state.compare_exchange_strong(state, Thread::RunningAwaited);
        } else if (state == Thread::Ended) {
            const TerminationShield shield;
            if (thread.state.compare_exchange_strong(state, Thread::Joining))
                Join(thread);
        } else {
            WaitOnWord(&thread.state, state);
        }
        state = thread.state.load(std::memory_order_acquire);
    }
    return true;
}

bool IsCurrentThread(const Thread& thread) {
    return &thread == t_current;
}

int ThreadExitCode(const Thread& thread) {
    return thread.HasEnded() ? thread.exitCode : StillActive;
}

unsigned int ThreadId(Thread& thread) {
    for (;;) {
        std::uint32_t id = thread.id.load();
        if (id == 0)
            thread.id.compare_exchange_strong(id, Thread::IdAwaited);
        else if (id == Thread::IdAwaited)
            WaitOnWord(&thread.id, Thread::IdAwaited);
        else
            return id == Thread::NoId ? 0 : id;
    }
}

unsigned int CurrentThreadId() {
    // Kept, for asking is a system call. The child of a fork starts with this memory but has an id of its
    // own; and the request to end that a forking thread has got is not for the child.
    static thread_local unsigned int t_id [[gnu::tls_model("initial-exec")]] = 0;
    if (t_id != 0)
        return t_id;
    const TerminationShield shield; // one that is ended in here would leave the static shut
    static const bool s_forgotten = pthread_atfork(nullptr, nullptr, [] {
                                        t_id = 0;
                                        if (t_current != nullptr)
                                            t_current->toTerminate.store(false);
                                    }) == 0;
    const auto id = static_cast<unsigned int>(syscall(SYS_gettid));
    t_id = s_forgotten ? id : 0;
    return id;
}

const volatile char& s_isOnlyThread = __libc_single_threaded;

void SetCurrentThreadName(std::string_view name) {
    constexpr std::size_t Longest = 15;
    std::size_t length = std::min(name.size(), Longest);
    while (length < name.size() && length > 0 && (static_cast<unsigned char>(name[length]) & 0xC0) == 0x80)
        --length;
    std::array<char, Longest + 1> text = {};
    std::copy_n(name.data(), length, text.data());
    pthread_setname_np(pthread_self(), text.data());
}

bool SetThreadPriority(Thread& thread, ThreadPriority priority) {
    const unsigned int id = ThreadId(thread);
    if (thread.HasEnded() || !SetNice(id, priority))
        return false;
    thread.priority.store(priority);
    return true;
}

bool GetThreadPriority(Thread& thread, ThreadPriority& priority) {
    const unsigned int id = ThreadId(thread);
    if (thread.HasEnded())
        return false;
    errno = 0;
    const int nice = getpriority(PRIO_PROCESS, id);
    if (nice == -1 && errno != 0)
        return false;
    // Where the system cannot tell two priorities apart, the one that was asked for.
    const ThreadPriority asked = thread.priority.load();
    using P = ThreadPriority;
    for (const P candidate : {asked, P::Normal, P::Idle, P::BelowNormal, P::AboveNormal, P::Highest}) {
        if (candidate != P::Other && NiceValue(candidate) == nice) {
            priority = candidate;
            return true;
        }
    }
    priority = P::Other;
    return true;
}

bool TerminateThread(Thread& thread, int exitCode) {
    if (&thread == t_current)
        ExitThread(exitCode);
    std::uint32_t expected = Thread::Running;
    thread.state.compare_exchange_strong(expected, Thread::RunningAwaited);
    if (thread.HasEnded())
        return WaitForThread(thread);
    thread.terminationCode.store(exitCode);
    thread.toTerminate.store(true);
    // A request is repeated after 50 microseconds at first, later after 2 milliseconds.
    using Clock = std::chrono::steady_clock;
    constexpr std::int64_t LongestPause = 2000;
    const auto regardless = Clock::now() + std::chrono::seconds(2);
    for (std::int64_t pause = 50; !thread.HasEnded(); pause = std::min(pause + 1, LongestPause)) {
        const int signal = UsableSignal();
        int error = signal != 0 ? 0 : EINVAL;
        const std::uint32_t id = thread.id.load();
        // If the thread has just ended by itself the number may meanwhile be another thread's of this
        // process, which has no request and ignores the signal.
        if (error == 0 && id != 0 && id != Thread::IdAwaited && Send(id, signal) != 0 && errno != ESRCH)
            error = errno;
        if (!thread.atAnyPlace.load() && Clock::now() >= regardless)
            thread.atAnyPlace.store(true);
        // Others may have filled the system's queue of signals for a moment. Anything else will not get better.
        if (error != 0 && (error != EAGAIN || thread.atAnyPlace.load()) && !thread.HasEnded()) {
            thread.toTerminate.store(false);
            thread.atAnyPlace.store(false);
            return false;
        }
        const std::uint32_t state = thread.state.load();
        if (state < Thread::Ended)
            WaitOnWord(&thread.state, state, pause);
    }
    return WaitForThread(thread);
}

void ExitThread(int exitCode) {
    Thread* self = t_current;
    if (self == nullptr) {
        pthread_attr_t attributes = {};
        void* stack = nullptr;
        std::size_t size = 0;
        if (pthread_getattr_np(pthread_self(), &attributes) == 0 &&
            pthread_attr_getstack(&attributes, &stack, &size) == 0)
            ForgetForkHooks(stack, static_cast<char*>(stack) + size);
        pthread_attr_destroy(&attributes);
        Vanish();
    }
    ForgetStack(*self);
    if (self->phase.load(std::memory_order_relaxed) != Thread::Phase::Body)
        VanishAsEnded(*self); // a thread_local object's destructor came here
    self->phase.store(Thread::Phase::Leaving, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    self->exitCode = exitCode;
    std::longjmp(*self->leaveBody, 1);
}

void RaiseShield() {
    t_shields = t_shields + 1;
}

void LowerShield() {
    const int left = t_shields - 1;
    t_shields = left;
    if (left == 0 && t_current != nullptr && IsDoomed(*t_current))
        Die(*t_current);
}

} // namespace Platform
