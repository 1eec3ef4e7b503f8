#include "toolkit/qzprocess.h"

#include <atomic>
#include <chrono>
#include <new>
#include <string>
#include <utility>

#include "platform/forkhook.h"
#include "platform/sharedlock.h"
#include "toolkit/process/nesting.h"
#include "toolkit/qzlogfile.h"
#include "toolkit/qzmutex.h"

namespace Qzc {

using Platform::SharedLock;
using Platform::SharedMemory;
using Platform::SharedMutex;
using Platform::Waited;
using Opening = SharedMemory::Opening;
using Clock = SharedMemory::Clock;
using Deadline = Clock::time_point;

namespace {

constexpr int MessageCode = -100;
constexpr std::chrono::milliseconds WaitLimit(1000000);
constexpr Deadline NoDeadline = Deadline::max(); ///< WaitLimit from the moment that a wait begins

constexpr unsigned long WaitAcquired = 0;
constexpr unsigned long WaitTimedOut = 258;
constexpr unsigned long WaitFailed = 0xFFFFFFFF;

Deadline OrLimit(Deadline deadline) {
    return deadline == NoDeadline ? Clock::now() + WaitLimit : deadline;
}

KeldMBString FailureMessage(const char* what, const KeldMBString& name) {
    return what + (name.IsEmpty() ? KeldMBString("null") : name) + " Faile";
}

KeldMBString MemoryName(const KeldMBString& name) {
    KeldMBString file = name + ".lock";
    file.Replace('\\', '/');
    return file;
}

void Record(QzLogFile::LogLevelType level, const KeldMBString& message, int line) {
    QzLogFile::GetInstance(false).RecordLog(level, MessageCode, message, "qzprocess", line);
}

void RecordFailure(Opening opening, const KeldMBString& name, const std::string& whyDenied, int line) {
    const char* const what = opening == Opening::Unfit ? "create file mapping " : "create file Semaphore ";
    Record(QzLogFile::error, FailureMessage(what, name), line);
    if (opening == Opening::Denied)
        Record(QzLogFile::error, KeldMBString(whyDenied), line);
}

/// What all processes see. It fills one cache line: who locks looks at most of it.
struct alignas(64) SharedView {
    struct Counters {
        std::atomic<std::uint64_t> stamp;
        std::uint64_t readingProcesses; ///< the slots tell
        std::atomic<std::uint64_t> attachCount;
    };
    Counters counters;        ///< ".lock"
    SharedLock::State lock;   ///< ".rwlock"
    SharedMutex::State guard; ///< ".rlock"
};
static_assert(sizeof(SharedView::Counters) == 24 && sizeof(SharedView) == 64);

/// An open lock.
struct Connection {
    Connection(SharedMemory& memory, SharedView& sharedView)
        : view(sharedView), guard(memory, sharedView.guard), lock(memory, sharedView.lock) {}

    SharedView& view;
    SharedMutex guard;
    SharedLock lock;
};

/// Reading or writing, of a whole process.
struct Side {
    Nesting nesting;
    std::atomic<bool> has{false}; ///< whether the process really has the lock; failed locks raise the number, too

    void Forget() {
        nesting.Forget();
        has = false;
    }
};

/// What a lock call came to.
struct Locked {
    bool has = false;
    bool changed = false;
};

} // namespace

class QzProcess::Body {
public:
    Body() { Platform::AddForkHook(m_forkHook, Platform::ForkHold()); }
    ~Body() {
        Release();
        Platform::RemoveForkHook(m_forkHook, Platform::ForkHold());
    }
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;

    std::uint64_t Init(const KeldMBString& name, const KeldMBString& group);
    void Release();
    Locked LockReading(bool notify, Deadline deadline);
    void UnlockReading();
    Locked LockWriting(bool notify, Deadline deadline);
    void UnlockWriting();
    bool IsLocked() const { return m_reading.has || m_writing.has; }
    void SetCallBack(void (*callback)(void*), void* argument);
    void SetValid(bool valid) { m_valid = valid; }
    unsigned long WaitFor(const void* handle);

private:
    // The counters change under the guard or the lock, or one at a time.
    static std::uint64_t Read(const std::atomic<std::uint64_t>& counter) {
        return counter.load(std::memory_order_acquire);
    }

    bool IsUsable() const { return m_valid && m_initialised.load(std::memory_order_acquire); }
    bool Open(const KeldMBString& group);
    void Close();
    bool Begin(Side& side, Deadline deadline, Locked& locked);
    void End(Side& side);
    bool TakeGuard(Deadline deadline);
    void ReleaseGuard();
    void RecordLost(const SharedLock::Outcome& outcome) const;
    bool NoteChange(bool notify, Nesting& nesting);
    void GiveBackReading();
    void GiveBackWriting();
    void AfterForkInChild();
    static void Fail(Side& side, bool keepsNumber);

    Side m_reading;
    Side m_writing;
    bool m_countsAsReading = false; ///< a lock for reading failed; changes inside the reading
    std::atomic<bool> m_initialised{false};
    std::atomic<bool> m_valid{true};
    std::atomic<bool> m_hasGuard{false};
    std::atomic<std::uint64_t> m_lastStamp{0};
    std::unique_ptr<Connection> m_connection;
    SharedMemory m_memory;
    KeldMBString m_name;
    QzMutex m_initMutex; ///< guards the callback, too
    void (*m_callback)(void*) = nullptr;
    void* m_argument = nullptr;
    Platform::ForkHook m_forkHook = {[](void* self) { static_cast<Body*>(self)->AfterForkInChild(); }, this};
};

// ---- Opening and closing

std::uint64_t QzProcess::Body::Init(const KeldMBString& name, const KeldMBString& group) {
    QzMutexLock lock(m_initMutex);
    lock.lock();
    if (name.IsEmpty() || m_initialised)
        return 0;
    Close(); // what a child of fork could not keep
    m_name = name;
    if (!Open(group) || !TakeGuard(NoDeadline)) {
        Close();
        return 0;
    }
    SharedView::Counters& counters = m_connection->view.counters;
    m_lastStamp = Read(counters.stamp);
    const std::uint64_t attachCount = counters.attachCount.fetch_add(1) + 1;
    ReleaseGuard();
    m_initialised.store(true, std::memory_order_release);
    return attachCount;
}

// One memory holds all three objects: so they are of one life, and a process that is killed loses them at once.
bool QzProcess::Body::Open(const KeldMBString& group) {
    const KeldMBString file = MemoryName(m_name);
    SharedMemory::Options options = {sizeof(SharedView)};
    options.group = group.View();
    const Opening opening = m_memory.Open(file.View(), options);
    if (opening == Opening::Created || opening == Opening::Opened) {
        m_connection = std::make_unique<Connection>(m_memory, *static_cast<SharedView*>(m_memory.View()));
        return true;
    }
    RecordFailure(opening, m_name, m_memory.WhyDenied(), __LINE__);
    return false;
}

void QzProcess::Body::Close() {
    m_connection.reset();
    m_memory.Close();
    m_hasGuard = false;
}

void QzProcess::Body::Release() {
    if (m_reading.nesting.IsRecursion() || m_writing.nesting.IsRecursion())
        return; // from the callback, which must not; it would wait for itself
    // First the reading alone: a thread that is inside the writing may wait for this process's readers.
    m_reading.nesting.GoInside();
    m_reading.nesting.Clear();
    GiveBackReading();
    m_reading.nesting.GoOutside();

    m_reading.nesting.GoInside();
    m_writing.nesting.GoInside();
    {
        QzMutexLock lock(m_initMutex);
        lock.lock();
        m_reading.nesting.Clear();
        m_writing.nesting.Clear();
        GiveBackReading();
        GiveBackWriting();
        m_initialised = false;
        Close();
    }
    m_writing.nesting.GoOutside();
    m_reading.nesting.GoOutside();
}

// ---- Locking

// True when the thread is inside, to take the lock. Else `locked` is what the call has come to.
bool QzProcess::Body::Begin(Side& side, Deadline deadline, Locked& locked) {
    if (!IsUsable())
        return false;
    const Nesting::Entry entry = side.nesting.Enter(deadline);
    if (entry == Nesting::Entry::First) {
        if (m_initialised)
            return true;
        Fail(side, false); // released meanwhile
    }
    if (entry == Nesting::Entry::Nested) {
        locked.has = side.has;
        if (!locked.has && deadline != NoDeadline) // in one that failed, and has no unlock of its own
            End(side);
    }
    return false;
}

void QzProcess::Body::End(Side& side) {
    if (side.nesting.Leave()) {
        if (&side == &m_reading)
            GiveBackReading();
        else
            GiveBackWriting();
        side.nesting.GoOutside();
    }
}

Locked QzProcess::Body::LockReading(bool notify, Deadline deadline) {
    Locked locked;
    if (!Begin(m_reading, deadline, locked))
        return locked;
    SharedLock& lock = m_connection->lock;
    if (!lock.TryRead()) {
        const SharedLock::Outcome outcome = lock.Read(OrLimit(deadline));
        RecordLost(outcome);
        if (!outcome.taken) {
            m_countsAsReading = deadline == NoDeadline;
            if (m_countsAsReading)
                lock.CountAsReading();
            Fail(m_reading, deadline == NoDeadline);
            return {};
        }
    }
    m_reading.has.store(true, std::memory_order_release);
    bool changed = false;
    if (Read(m_connection->view.counters.stamp) != m_lastStamp.load(std::memory_order_relaxed)) {
        if (!TakeGuard(deadline)) {
            GiveBackReading();
            Fail(m_reading, deadline == NoDeadline);
            return {};
        }
        changed = NoteChange(notify, m_reading.nesting);
        ReleaseGuard();
    }
    const bool has = m_reading.has; // not in a child that the callback has forked
    m_reading.nesting.GoOutside();
    return {has, changed};
}

void QzProcess::Body::UnlockReading() {
    if (IsUsable())
        End(m_reading);
}

Locked QzProcess::Body::LockWriting(bool notify, Deadline deadline) {
    Locked locked;
    if (!Begin(m_writing, deadline, locked))
        return locked;
    SharedLock& lock = m_connection->lock;
    if (!lock.TryWrite()) {
        const SharedLock::Outcome outcome = lock.Write(OrLimit(deadline));
        RecordLost(outcome);
        if (!outcome.taken) {
            Fail(m_writing, deadline == NoDeadline);
            return {};
        }
    }
    m_writing.has.store(true, std::memory_order_release);
    SharedView::Counters& counters = m_connection->view.counters;
    const bool changed =
        Read(counters.stamp) != m_lastStamp.load(std::memory_order_relaxed) && NoteChange(notify, m_writing.nesting);
    const bool has = m_writing.has; // not in a child that the callback has forked
    if (has) {
        const std::uint64_t stamp = Read(counters.stamp) + 1;
        counters.stamp.store(stamp, std::memory_order_release);
        m_lastStamp.store(stamp, std::memory_order_relaxed);
    }
    m_writing.nesting.GoOutside();
    return {has, changed};
}

void QzProcess::Body::UnlockWriting() {
    if (IsUsable())
        End(m_writing);
}

// A lock that fails keeps its number: its unlock is still to come. One with a deadline does not.
void QzProcess::Body::Fail(Side& side, bool keepsNumber) {
    if (!keepsNumber)
        side.nesting.Clear();
    side.nesting.GoOutside();
}

// From inside, as are all that follow for one side.
void QzProcess::Body::GiveBackReading() {
    if (m_reading.has || m_countsAsReading) {
        m_countsAsReading = false;
        m_reading.has.store(false, std::memory_order_release);
        m_connection->lock.EndRead();
    }
}

void QzProcess::Body::GiveBackWriting() {
    if (m_writing.has) {
        m_writing.has.store(false, std::memory_order_release);
        m_connection->lock.EndWrite();
    }
}

bool QzProcess::Body::NoteChange(bool notify, Nesting& nesting) {
    const std::uint64_t stamp = Read(m_connection->view.counters.stamp);
    if (notify) {
        QzMutexLock lock(m_initMutex);
        lock.lock();
        void (*const callback)(void*) = m_callback;
        void* const argument = m_argument;
        lock.unlock();
        const Nesting::Recursion recursion(nesting);
        if (callback != nullptr)
            callback(argument);
    }
    m_lastStamp.store(stamp, std::memory_order_relaxed);
    return true;
}

void QzProcess::Body::SetCallBack(void (*callback)(void*), void* argument) {
    QzMutexLock lock(m_initMutex);
    lock.lock();
    m_callback = callback;
    m_argument = argument;
}

// ---- Waiting, and what processes leave that are gone

unsigned long QzProcess::Body::WaitFor(const void* handle) {
    if (handle == nullptr || m_connection == nullptr)
        return WaitFailed;
    bool acquired = false;
    if (handle == &m_connection->guard)
        acquired = m_connection->guard.TryTake() || m_connection->guard.Wait(OrLimit(NoDeadline)) != Waited::TimedOut;
    else if (handle == &m_connection->lock)
        acquired = m_connection->lock.TryWrite() || m_connection->lock.Write(OrLimit(NoDeadline)).taken;
    else
        return WaitFailed;
    return acquired ? WaitAcquired : WaitTimedOut;
}

// Who is killed inside the guard is a reader, as a rule: now is the time to look for them.
bool QzProcess::Body::TakeGuard(Deadline deadline) {
    SharedMutex& guard = m_connection->guard;
    const Waited waited = guard.TryTake() ? Waited::Acquired : guard.Wait(OrLimit(deadline));
    if (waited == Waited::TimedOut)
        return false;
    m_hasGuard = true;
    if (waited == Waited::Abandoned) {
        SharedLock::Outcome outcome;
        outcome.lostReaders = m_connection->lock.ForgetLostReaders();
        RecordLost(outcome);
    }
    return true;
}

void QzProcess::Body::ReleaseGuard() {
    // A callback may have forked: what its process had is not the child's to give back.
    if (m_hasGuard) {
        m_hasGuard = false;
        m_connection->guard.Release();
    }
}

void QzProcess::Body::RecordLost(const SharedLock::Outcome& outcome) const {
    const KeldMBString what = "a process ended while it had locked " + m_name + " for ";
    if (outcome.lostWriter)
        Record(QzLogFile::warning, what + "writing: the protected data may be half written", __LINE__);
    if (outcome.lostReaders)
        Record(QzLogFile::warning, what + "reading", __LINE__);
}

// Only the thread that forked is there. Another one may have been inside any of the functions above.
void QzProcess::Body::AfterForkInChild() {
    m_initMutex.~QzMutex();
    new (&m_initMutex) QzMutex;
    m_reading.Forget();
    m_writing.Forget();
    m_countsAsReading = false;
    m_hasGuard = false;
    if (!m_memory.IsOpen())
        m_initialised = false;
}

// ---- The object

QzProcess::QzProcess() : m_body(new Body) {}
QzProcess::~QzProcess() = default;

std::uint64_t QzProcess::ProcessLockInit(const KeldMBString& name) {
    return m_body->Init(name, KeldMBString());
}

std::uint64_t QzProcess::ProcessLockInit(const KeldMBString& name, const KeldMBString& group) {
    return m_body->Init(name, group);
}

void QzProcess::ProcessLockRelease() {
    m_body->Release();
}

bool QzProcess::ReaderLock(bool notify) {
    return m_body->LockReading(notify, NoDeadline).changed;
}

void QzProcess::ReaderUnlock() {
    m_body->UnlockReading();
}

bool QzProcess::WriterLock(bool notify) {
    return m_body->LockWriting(notify, NoDeadline).changed;
}

void QzProcess::WriterUnlock() {
    m_body->UnlockWriting();
}

bool QzProcess::TimedReaderLock(unsigned int milliseconds, bool notify) {
    return m_body->LockReading(notify, Clock::now() + std::chrono::milliseconds(milliseconds)).has;
}

bool QzProcess::TimedWriterLock(unsigned int milliseconds, bool notify) {
    return m_body->LockWriting(notify, Clock::now() + std::chrono::milliseconds(milliseconds)).has;
}

bool QzProcess::isLocked() const {
    return m_body->IsLocked();
}

void QzProcess::SetCallBack(void (*callback)(void*), void* argument) {
    m_body->SetCallBack(callback, argument);
}

void QzProcess::SetIsValied(bool valid) {
    m_body->SetValid(valid);
}

bool QzProcess::GetState(const KeldMBString& name, QzProcessState& state, const KeldMBString& group) {
    if (name.IsEmpty())
        return false;
    QzProcessState seen;
    const auto look = [&](SharedMemory& memory) {
        Connection connection(memory, *static_cast<SharedView*>(memory.View()));
        const SharedView::Counters& counters = connection.view.counters;
        seen.m_nStamp = counters.stamp.load(std::memory_order_acquire);
        seen.m_nOpenings = counters.attachCount.load(std::memory_order_acquire);
        const SharedMemory::Opener writer = connection.lock.Writer();
        const auto processes = memory.Processes();
        for (std::uint32_t i = 0; i < memory.SlotsUsed(); ++i) {
            const std::uint64_t slot = memory.Slot(i).load(std::memory_order_acquire);
            const SharedMemory::Opener number = SharedMemory::SlotOpener(slot);
            if (number == SharedMemory::Nobody || !memory.IsThere(number))
                continue;
            QzProcessState::Opener opener;
            const auto process = processes.find(number);
            opener.m_nProcessID = process != processes.end() ? process->second : 0;
            opener.m_bReading = (slot & SharedLock::Reading) != 0;
            opener.m_bWriting = number == writer;
            seen.m_openers.Add(opener);
        }
    };
    SharedMemory::Options options = {sizeof(SharedView)};
    options.group = group.View();
    std::string whyDenied;
    const Opening opening = SharedMemory::Look(MemoryName(name).View(), options, look, whyDenied);
    if (opening == Opening::Denied || opening == Opening::Unfit)
        RecordFailure(opening, name, whyDenied, __LINE__);
    if (opening != Opening::Opened || seen.m_openers.IsEmpty())
        return false;
    state = std::move(seen);
    return true;
}

unsigned long QzProcess::WaitForValidSignal(void* handle) {
    return m_body->WaitFor(handle);
}

} // namespace Qzc
