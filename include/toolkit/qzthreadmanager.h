#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <unordered_map>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qzthreadex.h"

namespace Qzc {

/// The process's registry of named threads, which makes, owns and deletes them. Names differ by more than the
/// case of ASCII letters.
///
/// Every operation may be called from any thread, and by one that is being ended by force. They run one at a time
/// under one lock, which a managed thread takes as it ends. When the process ends the registered objects are deleted
/// and threads that still run are left alone.
class MOTOOLKIT_API QzThreadManager {
public:
    static QzThreadManager& GetInstance(); ///< the process's own, made on first use

    /// Registers a thread, which is started with Start. Null when the name is empty or taken or `func` is
    /// null. The running thread bears the name's first 15 bytes in the system's tools (gdb, top). A managed thread
    /// leaves the registry and is deleted when its body returns.
    QzThreadEx* CreateThread(const KeldMBString& name, int (*func)(void*), void* arg, unsigned char managed);

    /// The thread with this name. When there is none: the thread that was registered last, null in an empty
    /// registry; so check the name of what you get unless the name is certain.
    QzThreadEx* GetThread(const KeldMBString& name);

    /// Ends the named thread by force if it runs (see QzThread for what that means), unregisters and deletes
    /// it. A thread that destroys itself does not come back.
    void DestoryThread(const KeldMBString& name);

    /// Lets the named thread stay registered when it ends; it is then removed with DestoryThread. True if
    /// found.
    bool CancleManaged(const KeldMBString& name);

    unsigned int GetOptimalCount() const; ///< twice the number of processors
    int GetActiveCount();                 ///< the threads registered, started or not, read without the lock

    QzThreadManager(const QzThreadManager&) = delete;
    QzThreadManager& operator=(const QzThreadManager&) = delete;

private:
    friend class QzThreadEx;

    QzThreadManager() = default;
    ~QzThreadManager() = default;

    void DestoryManagedThread(const KeldMBString& name); ///< the caller has the lock
    void Leave(QzThreadEx* thread, bool byExit);         ///< the thread's last step on its object
    void ReleaseAll();
    using Threads = std::map<std::uint64_t, QzThreadEx*>;

    Threads::iterator Find(const KeldMBString& name, bool managedOnly = false);
    void Remove(Threads::iterator thread);

    Threads m_threads; // by a running number, so in the order of their creation
    std::unordered_multimap<std::size_t, std::uint64_t> m_numbers; // by the hash of the name
    std::uint64_t m_nLastNumber = 0;
    std::atomic<int> m_nActive{0}; // how many there are, to be read without the lock
};

} // namespace Qzc
