#pragma once

#include <atomic>
#include <cstdint>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// A thread whose body is a plain function, made, owned, found and destroyed by name through QzThreadManager.
///
/// The handle stays open when the thread has ended, so its state, exit code and result can still be asked
/// for, and it may be started again. A managed thread leaves the registry and is deleted as it ends: a
/// pointer to it is good only until then. An exception that escapes from the body is swallowed and leaves the
/// return value as it was.
class MOTOOLKIT_API QzThreadEx {
public:
    /// From the least to the most; each system has its own numbers for them.
    enum Priority : int { Unknown = 0, Idle = 1, BelowNormal = 2, Normal = 3, AboveNormal = 4, Highest = 5 };
    /// How the system is to choose among threads.
    enum Policy : int { DefaultPolicy = 0 }; ///< stored, applied nowhere

    /// What a thread is doing.
    enum Thread_Status : int {
        StatusUnknown = -1, ///< could not be found out
        StatusNone = 0,     ///< never started
        StatusRunning = 1,  ///< also when it has ended with 259, the code that stands for "still active"
        StatusFinished = 5
    };

    QzThreadEx(const QzThreadEx&) = delete;
    QzThreadEx& operator=(const QzThreadEx&) = delete;

    unsigned int GetID();   ///< the system's id of the thread's latest run, 0 before any
    KeldMBString GetName(); ///< as CreateThread was given it

    void SetStackSize(unsigned int size); ///< in bytes, for the next Start; 0 for the system's default
    void SetPolicy(Policy policy);        ///< kept, applied nowhere

    /// Before the first Start it is kept for that and the result is true; afterwards it is applied at once,
    /// and the result says whether the system did. Any value but those listed means normal.
    bool SetPriority(Priority priority);
    Priority GetPriority() const; ///< the system's while the thread runs, else the one that was set

    Thread_Status GetStatus() const; ///< asks the system
    bool IsAlive() const;            ///< whether the body is running

    /// Runs the body in a new thread; false while it runs already and when the system refuses. With a managed
    /// thread the object may be gone when this returns.
    bool Start();

    /// Waits until the thread has ended; true at once if it has. False when it was never started, and in the
    /// thread itself.
    bool Join();

    /// The result of the body, or the exit code of a thread that ended otherwise. 0 if it was never started.
    int GetReturnValue();

    static void Sleep(std::uint64_t ms);      ///< the low 32 bits count
    static bool SwitchToThread();             ///< gives other threads the processor; true
    static unsigned int GetCurrentThreadId(); ///< the system's id of the calling thread

private:
    friend class QzThreadManager;

    /// Who deletes an object that the manager has let go of. It leaves it to a thread that is still running.
    enum Owner : int { NoThread, RunningThread, ThreadAlone };

    QzThreadEx(const KeldMBString& name, int (*func)(void*), void* arg, unsigned char managed);
    ~QzThreadEx();
    static int execute(void* object);

    std::atomic<unsigned int> m_nThreadID{0};
    KeldMBString m_strName;
    std::atomic<void*> m_handle{nullptr};
    int (*m_func)(void*);
    void* m_arg;
    std::atomic<unsigned char> m_bManaged;
    unsigned int m_nStackSize = 0;
    Priority m_priority = Unknown;
    Policy m_policy = DefaultPolicy;
    std::atomic<int> m_nReturn{0};
    std::atomic<int> m_owner{NoThread};
};

} // namespace Qzc
