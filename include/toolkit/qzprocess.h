#pragma once

#include <cstdint>
#include <memory>

#include "base/keldarray.h"
#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// What a lock is in, at a moment that is over when it is told.
struct QzProcessState {
    /// One object that has the lock open.
    struct Opener {
        unsigned int m_nProcessID = 0; ///< 0 where the system does not tell
        bool m_bReading = false;       ///< whether its process has locked for reading
        bool m_bWriting = false;       ///< likewise for writing
    };
    KeldArray<Opener> m_openers;   ///< the objects that have it open
    std::uint64_t m_nStamp = 0;    ///< how often it was taken for writing
    std::uint64_t m_nOpenings = 0; ///< how often it was opened since it was made
};

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
/// too, and their locks return at once. A process that reads must not lock for writing, nor the other way
/// round: it would wait for itself. Every lock call wants its unlock call, also when it returned false;
/// unlocking what was not locked does nothing.
///
/// A lock waits at most 1000000 ms for the lock proper, and as long for the guard under which readers report
/// changes, and then gives up with the result false. One that gave up still counts: further ones of its kind
/// return at once, without the lock, until its unlock. And a ReaderLock that could not get the lock proper makes its
/// process count as a reading one until then: other processes' readers join it, and so come in beside the writer that
/// it could not wait for.
///
/// Neither readers nor writers are preferred. Readers join those that read although a writer waits, save for
/// moments in which it has them wait until those are gone: at first 10 ms, then more, at most a second. So reads
/// of less than a second cannot shut out a writer for good. Who has waited for 10 ms comes before those who
/// have not.
///
/// Names are bytes, a backslash meaning the same as a slash, and belong to the user, or to a group of users:
/// processes of others have locks of their own under the same names. On Linux a name may have 193 bytes, fewer
/// with characters that a file name cannot hold; 32768 objects may have one name open at a time, each with one
/// file descriptor. What lies behind a name is gone with the last object that has it open.
///
/// A process that ends without unlocking, killed or not: on Linux those that wait get the lock within some
/// ten milliseconds, and the log gets a warning, which says that the protected data may be half written when
/// the process had locked for writing. Where the system cannot tell that a process is gone, they wait for as
/// long as the limit above allows. The next object to open a name that no process has open any more finds it
/// as new, whatever state it was left in. A thread that ends, by force or not, takes nothing along: what it had
/// locked stays locked until another one unlocks it or the process ends; and if it was ended by force inside a
/// call, other threads' calls on the object may wait for ever.
///
/// A child made by fork may use its copies of the parent's objects. They are attached to the same locks and
/// hold nothing: what the parent had locked is the parent's to unlock. If the system refuses, the copy is not
/// initialised. A child that is made past fork, by a bare clone, is not noticed: its copies count as the
/// parent's own objects, must not be used, and keep alive what the parent has locked until both have ended or
/// the child runs another program.
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

    /// The same with the lock of that name that belongs to a group of users, of which this process must be one:
    /// all members' processes share it. On Linux a group of /etc/group or the like. An empty group: the user's.
    std::uint64_t ProcessLockInit(const KeldMBString& name, const KeldMBString& group);

    /// Gives back what this object has locked and closes the lock; ProcessLockInit may follow. Waits for
    /// calls that other threads have under way.
    void ProcessLockRelease();

    /// True when the lock was taken and the shared thing was changed since this object last looked; with
    /// `notify` the callback is called before. False when nothing was changed, when the process had the lock
    /// already, and when the lock could not be taken: isLocked tells these apart.
    bool ReaderLock(bool notify);
    void ReaderUnlock();          ///< gives the lock back, when this object counts as having it
    bool WriterLock(bool notify); ///< likewise; this object's own writing is no change to it
    void WriterUnlock();          ///< likewise

    /// These wait no longer than so many milliseconds, 0 meaning not at all, and tell whether the process has
    /// the lock. Only then is there anything to unlock. Of changes the callback hears, when `notify` is set.
    bool TimedReaderLock(unsigned int milliseconds, bool notify = true);
    bool TimedWriterLock(unsigned int milliseconds, bool notify = true); ///< likewise

    bool isLocked() const; ///< whether this object has the lock, for reading or for writing

    /// Called with `argument` by a lock that finds a change, in the thread that locks, with the lock taken. Of
    /// the callbacks of all processes' readers only one runs at a time. It must not throw and must not lock,
    /// unlock or release this object. Null: none, as at first.
    void SetCallBack(void (*callback)(void*), void* argument);

    /// An object that is not valid neither locks nor unlocks. At first it is.
    void SetIsValied(bool valid);

    /// Looks at the lock of that name, which nobody need have open in this process, and neither opens nor makes it:
    /// false when no process has it open, or it cannot be looked at, which the log tells. Who opens or closes the lock
    /// waits meanwhile; who locks does not.
    static bool GetState(const KeldMBString& name, QzProcessState& state, const KeldMBString& group = KeldMBString());

    /// Waits for one of this object's semaphores, at most 1000000 ms: 0 acquired, 258 the time is up,
    /// 0xFFFFFFFF the handle is none of them.
    unsigned long WaitForValidSignal(void* handle);

private:
    class Body;
    std::unique_ptr<Body> m_body;
};

} // namespace Qzc
