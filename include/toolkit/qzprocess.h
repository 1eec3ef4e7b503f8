#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qzmutex.h"

namespace Platform {
class NamedSemaphore;
class SharedMemory;
struct ForkHook;
enum class Taker;
} // namespace Platform

namespace Qzc {

/// A reader/writer lock that all processes share which open it under the same name, with a change stamp: each
/// write lock advances the stamp, and the next lock that another object takes reports that the shared thing
/// was changed since that object last looked.
///
///     QzProcess lock;
///     if (lock.ProcessLockInit("my/cache") == 0)
///         return; // the log says why
///     QzProcessReaderLock reading(lock, true); // the callback hears of changes
///
/// It keeps processes apart, not threads: what one thread of a process has locked, the others count as having
/// too, and their locks return at once. Neither readers nor writers are preferred. A process that reads must
/// not lock for writing, nor the other way round: it would wait for itself. Every lock call wants its unlock
/// call, also when it returned false; unlocking what was not locked does nothing.
///
/// A lock waits for the guard of the shared counters and for the lock proper, for each at most 1000000 ms,
/// and then gives up with the result false. A ReaderLock that gave up still counts: further ones return at
/// once, and once it had the guard, this process counts as a reading one, until its unlock.
///
/// Names are bytes, a backslash meaning the same as a slash, and belong to the user: processes of other users
/// have locks of their own under the same names. On Linux a name may have 193 bytes, fewer with characters
/// that a file name cannot hold, and 32768 objects may have one name open at a time. What lies behind a name
/// is gone with the last object that has it open.
///
/// A process that ends without unlocking, killed or not: on Linux those that wait get the lock within some
/// ten milliseconds, and the log gets a warning, which says that the protected data may be half written when
/// the process had locked for writing. Where the system cannot tell that a process is gone, they wait for as
/// long as the limit above allows. The next object to open a name that no process has open any more finds it
/// as new, whatever state it was left in.
///
/// A child made by fork may use its copies of the parent's objects. They are attached to the same locks and
/// hold nothing: what the parent had locked is the parent's to unlock. If the system refuses, the copy is not
/// initialised.
///
/// All functions may be called from any thread.
class MOTOOLKIT_API QzProcess {
public:
    QzProcess();
    ~QzProcess(); ///< ProcessLockRelease
    QzProcess(const QzProcess&) = delete;
    QzProcess& operator=(const QzProcess&) = delete;

    /// Opens the lock, and makes it when nobody has it open. How often it has been opened since it was made,
    /// this time included; 0 on failure, with an empty name and when this object is initialised already.
    std::uint64_t ProcessLockInit(const KeldMBString& name);

    /// Gives back what this object has locked and closes the lock; ProcessLockInit may follow. Waits for
    /// calls that other threads have under way.
    void ProcessLockRelease();

    /// True when the lock was taken and the shared thing was changed since this object last looked; with
    /// `notify` the callback is called before. False when nothing was changed, when the process had the lock
    /// already, and when the lock could not be taken: isLocked tells these apart.
    bool ReaderLock(bool notify);
    void ReaderUnlock();
    bool WriterLock(bool notify); ///< likewise; this object's own writing is no change to it
    void WriterUnlock();

    bool isLocked() const; ///< whether this object has the lock, for reading or for writing

    /// Called with `argument` by a lock that finds a change, in the thread that locks, with the lock taken.
    /// It must not throw and must not lock, unlock or release this object. Null: none, as at first.
    void SetCallBack(void (*callback)(void*), void* argument);

    /// An object that is not valid neither locks nor unlocks. At first it is.
    void SetIsValied(bool valid);

    /// Waits for one of this object's semaphores, at most 1000000 ms: 0 acquired, 258 the time is up,
    /// 0xFFFFFFFF the handle is none of them.
    unsigned long WaitForValidSignal(void* handle);

private:
    struct SharedBlock;

    bool IsUsable() const;
    bool OpenObjects();
    void CloseObjects();
    bool TakeGuard();
    void ReleaseGuard();
    bool TakeExclusion(Platform::Taker taker);
    unsigned long Wait(Platform::NamedSemaphore& semaphore, Platform::Taker taker, bool& abandoned);
    void RepairReaders();
    void RepairReadersIfOneIsGone();
    bool NoteChange(bool notify);
    void GiveBackReading();
    void GiveBackWriting();
    void AfterForkInChild();

    /// A value of this process that one thread writes at a time and others may read.
    template <class T>
    class Shared {
    public:
        explicit Shared(T value) : m_value(value) {}
        operator T() const { return m_value.load(std::memory_order_acquire); }
        Shared& operator=(T value) {
            m_value.store(value, std::memory_order_release);
            return *this;
        }

    private:
        std::atomic<T> m_value;
    };

    std::uint64_t m_readers = 0; ///< nesting of ReaderLock in this process
    std::uint64_t m_writers = 0; ///< nesting of WriterLock
    Shared<bool> m_initialised{false};
    Shared<std::uint64_t> m_lastStamp{0};
    void (*m_callback)(void*) = nullptr;
    void* m_argument = nullptr;
    Shared<bool> m_valid{true};
    QzMutex m_readerMutex;
    QzMutex m_writerMutex;
    QzMutex m_initMutex; ///< guards the callback, too
    SharedBlock* m_view = nullptr;
    std::unique_ptr<Platform::NamedSemaphore> m_exclusion; ///< ".rwlock"
    std::unique_ptr<Platform::NamedSemaphore> m_guard;     ///< ".rlock"
    std::unique_ptr<Platform::SharedMemory> m_mapping;     ///< ".lock"

    // What this process really has, unlike the nesting counts, which failed locks advance as well.
    Shared<bool> m_hasGuard{false};
    Shared<bool> m_isCounted{false}; ///< among the reading processes
    Shared<bool> m_isReading{false};
    Shared<bool> m_isWriting{false};
    KeldMBString m_name;
    std::unique_ptr<Platform::ForkHook> m_forkHook;
};

} // namespace Qzc
