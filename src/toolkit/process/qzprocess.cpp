#include "toolkit/qzprocess.h"

#include <chrono>
#include <new>

#include "platform/forkhook.h"
#include "platform/namedsemaphore.h"
#include "platform/sharedmemory.h"
#include "toolkit/qzlogfile.h"

// What a killed process leaves
// ----------------------------
// The semaphores know who has them, so whoever waits for a process that is gone gets its unit. What else a
// process may leave half done is put right by the one that gets the guard from it (RepairReaders):
//
//     ReaderLock                            left, and put right
//     take the guard
//     mark this process as reading          marked, not counted            } the count of reading processes
//     count it                              counted, no exclusion          } is made anew from the marks of
//     the first takes the exclusion         the readers' exclusion         } those that are there; when there
//     release the guard                     and nobody who reads           } are none, the readers' exclusion
//                                                                          } is given back
//
// ReaderUnlock goes the same way back, under the guard as well. A process that is killed while it reads
// leaves its mark, which a writer that waits for the readers finds. A writer has only the exclusion to leave.

namespace Qzc {

using Platform::NamedSemaphore;
using Platform::SharedMemory;
using Platform::Taker;
using Waited = NamedSemaphore::Waited;
using Opening = SharedMemory::Opening;

namespace {

constexpr int MessageCode = -100;
constexpr std::uint32_t MaximumCount = 1024;
constexpr std::int64_t WaitLimit = 1000000; // milliseconds

constexpr unsigned long WaitAcquired = 0;
constexpr unsigned long WaitTimedOut = 258;
constexpr unsigned long WaitFailed = 0xFFFFFFFF;

KeldMBString FailureMessage(const char* what, const KeldMBString& name) {
    return what + (name.IsEmpty() ? KeldMBString("null") : name) + " Faile";
}

void Record(QzLogFile::LogLevelType level, const KeldMBString& message, int line) {
    QzLogFile::GetInstance(false).RecordLog(level, MessageCode, message, "qzprocess", line);
}

} // namespace

// What all processes see under the name + ".lock".
struct QzProcess::SharedBlock {
    std::atomic<std::uint64_t> stamp;
    std::atomic<std::uint64_t> readingProcesses;
    std::atomic<std::uint64_t> attachCount;
};

namespace {

// The counters change under the guard or the exclusion alone, so no step need be one with the system's help.
// Nor may the compiler exchange two: see above.
std::uint64_t Read(const std::atomic<std::uint64_t>& counter) {
    return counter.load(std::memory_order_acquire);
}

std::uint64_t Advance(std::atomic<std::uint64_t>& counter, std::uint64_t by) {
    const std::uint64_t value = Read(counter) + by;
    counter.store(value, std::memory_order_release);
    return value;
}

} // namespace

QzProcess::QzProcess()
    : m_forkHook(new Platform::ForkHook{[](void* self) { static_cast<QzProcess*>(self)->AfterForkInChild(); }, this}) {
    static_assert(sizeof(SharedBlock) == 24);
    Platform::AddForkHook(*m_forkHook, Platform::ForkHold());
}

QzProcess::~QzProcess() {
    ProcessLockRelease();
    Platform::RemoveForkHook(*m_forkHook, Platform::ForkHold());
}

// ---- Opening and closing

std::uint64_t QzProcess::ProcessLockInit(const KeldMBString& name) {
    QzMutexLock lock(m_initMutex);
    lock.lock();
    if (name.IsEmpty() || m_initialised)
        return 0;
    CloseObjects(); // what a child of fork could not keep
    m_name = name;
    if (!OpenObjects()) {
        CloseObjects();
        return 0;
    }
    m_lastStamp = Read(m_view->stamp);
    m_initialised = true;
    const std::uint64_t attachCount = Advance(m_view->attachCount, 1);
    ReleaseGuard();
    return attachCount;
}

// Each object counts as part of the one before, so all three are of one life: see SharedMemory::Options.
// Returns with the guard taken.
bool QzProcess::OpenObjects() {
    KeldMBString base = m_name;
    base.Replace('\\', '/');
    m_guard = std::make_unique<NamedSemaphore>();
    m_exclusion = std::make_unique<NamedSemaphore>();
    m_mapping = std::make_unique<SharedMemory>();
    if (m_guard->Open((base + ".rlock").View(), 1, MaximumCount) == Opening::Failed) {
        Record(QzLogFile::error, FailureMessage("create file Semaphore ", m_name), __LINE__);
        return false;
    }
    bool abandoned = false;
    if (Wait(*m_guard, Taker::Self, abandoned) != WaitAcquired)
        return false;
    m_hasGuard = true;

    const char* failed = nullptr;
    Opening mapping = Opening::Failed;
    if (m_exclusion->Open((base + ".rwlock").View(), 1, MaximumCount, m_guard->Life()) == Opening::Failed) {
        failed = "create file Semaphore ";
    } else {
        SharedMemory::Options options = {sizeof(SharedBlock)};
        options.marks = true;
        options.partOf = m_exclusion->Life();
        mapping = m_mapping->Open((base + ".lock").View(), options);
        if (mapping == Opening::Failed)
            failed = "create file mapping ";
    }
    if (failed != nullptr) {
        Record(QzLogFile::error, FailureMessage(failed, m_name), __LINE__);
        // What the one left that had the guard before is still to be repaired. Closed without being given
        // back, the guard tells that to the next one.
        if (!abandoned)
            ReleaseGuard();
        return false;
    }
    m_view = static_cast<SharedBlock*>(m_mapping->View());
    if (abandoned || mapping == Opening::Created)
        RepairReaders();
    return true;
}

void QzProcess::CloseObjects() {
    m_view = nullptr;
    m_mapping.reset();
    m_exclusion.reset();
    m_guard.reset();
    m_hasGuard = false;
}

void QzProcess::ProcessLockRelease() {
    { // before the writer mutex: a thread that has it may be waiting for this process's readers
        QzMutexLock lock(m_readerMutex);
        lock.lock();
        GiveBackReading();
    }
    QzMutexLock readerLock(m_readerMutex);
    readerLock.lock();
    QzMutexLock writerLock(m_writerMutex);
    writerLock.lock();
    QzMutexLock initLock(m_initMutex);
    initLock.lock();
    GiveBackReading();
    GiveBackWriting();
    m_initialised = false;
    CloseObjects();
}

// ---- Locking

bool QzProcess::ReaderLock(bool notify) {
    QzMutexLock lock(m_readerMutex);
    lock.lock();
    if (!IsUsable() || ++m_readers > 1 || !TakeGuard())
        return false;
    if (!m_isCounted) {
        m_mapping->SetMark(true);
        m_isCounted = true;
        Advance(m_view->readingProcesses, 1);
    }
    if (!m_exclusion->IsTakenByGroup()) {
        // Others are counted, but have no exclusion: they failed to get it, and may be gone since.
        if (Read(m_view->readingProcesses) > 1)
            RepairReaders();
        if (Read(m_view->readingProcesses) == 1 && !TakeExclusion(Taker::Group)) {
            ReleaseGuard();
            return false;
        }
    }
    m_isReading = true;
    const bool changed = NoteChange(notify);
    ReleaseGuard();
    return changed;
}

void QzProcess::ReaderUnlock() {
    QzMutexLock lock(m_readerMutex);
    lock.lock();
    if (IsUsable() && m_readers != 0 && --m_readers == 0)
        GiveBackReading();
}

bool QzProcess::WriterLock(bool notify) {
    QzMutexLock lock(m_writerMutex);
    lock.lock();
    if (!IsUsable() || ++m_writers > 1 || !TakeExclusion(Taker::Self))
        return false;
    m_isWriting = true;
    const bool changed = NoteChange(notify);
    m_lastStamp = Advance(m_view->stamp, 1);
    return changed;
}

void QzProcess::WriterUnlock() {
    QzMutexLock lock(m_writerMutex);
    lock.lock();
    if (IsUsable() && m_writers != 0 && --m_writers == 0)
        GiveBackWriting();
}

bool QzProcess::isLocked() const {
    return m_isReading || m_isWriting;
}

void QzProcess::SetCallBack(void (*callback)(void*), void* argument) {
    QzMutexLock lock(m_initMutex);
    lock.lock();
    m_callback = callback;
    m_argument = argument;
}

void QzProcess::SetIsValied(bool valid) {
    m_valid = valid;
}

bool QzProcess::IsUsable() const {
    return m_valid && m_initialised;
}

bool QzProcess::NoteChange(bool notify) {
    const std::uint64_t stamp = Read(m_view->stamp);
    if (stamp == m_lastStamp)
        return false;
    if (notify) {
        QzMutexLock lock(m_initMutex);
        lock.lock();
        void (*const callback)(void*) = m_callback;
        void* const argument = m_argument;
        lock.unlock();
        if (callback != nullptr)
            callback(argument);
    }
    m_lastStamp = stamp;
    return true;
}

void QzProcess::GiveBackReading() {
    m_readers = 0;
    m_isReading = false;
    if (!m_isCounted || !TakeGuard())
        return;
    const std::uint64_t left = Advance(m_view->readingProcesses, std::uint64_t(0) - 1);
    m_mapping->SetMark(false);
    m_isCounted = false;
    if (left == 0 && m_exclusion->IsTakenByGroup())
        m_exclusion->Post();
    ReleaseGuard();
}

void QzProcess::GiveBackWriting() {
    m_writers = 0;
    if (m_isWriting) {
        m_isWriting = false;
        m_exclusion->Post();
    }
}

// ---- Waiting, and what killed processes leave

unsigned long QzProcess::WaitForValidSignal(void* handle) {
    bool abandoned = false;
    for (NamedSemaphore* const semaphore : {m_guard.get(), m_exclusion.get()}) {
        if (handle != nullptr && handle == semaphore)
            return Wait(*semaphore, Taker::Self, abandoned);
    }
    return WaitFailed;
}

unsigned long QzProcess::Wait(NamedSemaphore& semaphore, Taker taker, bool& abandoned) {
    Waited waited = semaphore.Wait(NamedSemaphore::CheckInterval, taker);
    if (waited == Waited::TimedOut) {
        using Clock = std::chrono::steady_clock;
        const auto deadline = Clock::now() + std::chrono::milliseconds(WaitLimit - NamedSemaphore::CheckInterval);
        while (waited == Waited::TimedOut && Clock::now() < deadline) {
            if (&semaphore == m_exclusion.get())
                RepairReadersIfOneIsGone();
            waited = semaphore.Wait(NamedSemaphore::CheckInterval, taker);
        }
    }
    abandoned = waited == Waited::Abandoned;
    return waited == Waited::TimedOut ? WaitTimedOut : WaitAcquired;
}

bool QzProcess::TakeGuard() {
    bool abandoned = false;
    if (Wait(*m_guard, Taker::Self, abandoned) != WaitAcquired)
        return false;
    m_hasGuard = true;
    if (abandoned)
        RepairReaders();
    return true;
}

void QzProcess::ReleaseGuard() {
    // A callback may have forked: what its process had is not the child's to give back.
    if (m_hasGuard) {
        m_hasGuard = false;
        m_guard->Post();
    }
}

bool QzProcess::TakeExclusion(Taker taker) {
    bool abandoned = false;
    if (Wait(*m_exclusion, taker, abandoned) != WaitAcquired)
        return false;
    if (abandoned)
        Record(QzLogFile::warning,
               "a process ended while it had locked " + m_name + " for writing: the protected data may be half written",
               __LINE__);
    return true;
}

// Counts the reading processes anew. With the guard.
void QzProcess::RepairReaders() {
    const SharedMemory::MarkCount marks = m_mapping->CountMarks(true);
    m_view->readingProcesses.store(marks.there, std::memory_order_release);
    if (marks.there == 0 && m_exclusion->IsTakenByGroup())
        m_exclusion->Post();
    if (marks.gone != 0)
        Record(QzLogFile::warning, "a process ended while it had locked " + m_name + " for reading", __LINE__);
}

// For those who wait for the readers. Without any reader there, the last one is just giving the exclusion
// back, or it was killed before it could: the guard tells which.
void QzProcess::RepairReadersIfOneIsGone() {
    if (m_hasGuard || !m_exclusion->IsTakenByGroup())
        return;
    const SharedMemory::MarkCount marks = m_mapping->CountMarks(false);
    if (marks.there != 0 && marks.gone == 0)
        return;
    const Waited waited = m_guard->Wait(0);
    if (waited == Waited::TimedOut)
        return;
    m_hasGuard = true;
    RepairReaders();
    ReleaseGuard();
}

// Only the thread that forked is there. Another one may have been inside any of the functions above.
void QzProcess::AfterForkInChild() {
    for (QzMutex* const mutex : {&m_readerMutex, &m_writerMutex, &m_initMutex}) {
        mutex->~QzMutex();
        new (mutex) QzMutex;
    }
    m_readers = 0;
    m_writers = 0;
    m_hasGuard = false;
    m_isCounted = false;
    m_isReading = false;
    m_isWriting = false;
    if (m_initialised && (!m_guard->IsOpen() || !m_exclusion->IsOpen() || !m_mapping->IsOpen()))
        m_initialised = false;
}

} // namespace Qzc
