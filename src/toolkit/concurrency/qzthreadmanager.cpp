#include "toolkit/qzthreadmanager.h"

#include <new>

#include "platform/forkhook.h"
#include "platform/globallock.h"
#include "toolkit/concurrency/threadhandle.h"
#include "toolkit/qztoolkit.h"

namespace Qzc {

using Platform::GlobalLock;

namespace {

GlobalLock s_lock; // guards the registry and the deletion of its objects

const bool s_forks = [] {
    static constexpr auto Release = [](void*) { s_lock.Unlock(); };
    static constexpr Platform::ForkLock s_forkLock = {[](void*) { s_lock.Lock(); }, Release, Release, nullptr};
    Platform::AddForkLock(Platform::ForkRank::ThreadRegistry, s_forkLock);
    return true;
}();

} // namespace

QzThreadManager& QzThreadManager::GetInstance() {
    // Threads that outlive the statics still come here as they end. So the exit empties the registry, but the
    // registry and its lock keep standing.
    struct Registry {
        Registry() { new (data) QzThreadManager; }
        ~Registry() { Get().ReleaseAll(); }
        QzThreadManager& Get() { return *std::launder(reinterpret_cast<QzThreadManager*>(data)); }

        alignas(QzThreadManager) unsigned char data[sizeof(QzThreadManager)];
    };
    const Platform::TerminationShield shield; // one that is ended in here would leave the static shut
    static Registry s_registry;
    return s_registry.Get();
}

QzThreadEx* QzThreadManager::CreateThread(const KeldMBString& name, int (*func)(void*), void* arg,
                                          unsigned char managed) {
    if (name.IsEmpty() || func == nullptr)
        return nullptr;
    const GlobalLock::Guard guard(s_lock);
    if (Find(name) >= 0)
        return nullptr;
    auto* thread = new QzThreadEx(name, func, arg, managed);
    m_threads.Add(thread);
    m_nActive = m_threads.GetSize();
    return thread;
}

QzThreadEx* QzThreadManager::GetThread(const KeldMBString& name) {
    const GlobalLock::Guard guard(s_lock);
    const int index = Find(name);
    if (index >= 0)
        return m_threads[index];
    return m_threads.IsEmpty() ? nullptr : m_threads[m_threads.GetSize() - 1];
}

void QzThreadManager::DestoryThread(const KeldMBString& name) {
    bool destroysItself = false;
    {
        const GlobalLock::Guard guard(s_lock);
        const int index = Find(name);
        if (index < 0)
            return;
        QzThreadEx* thread = m_threads[index];
        destroysItself = thread == ThreadHandle::GetCurrent().object;
        if (!destroysItself)
            ThreadHandle::Terminate(thread->m_handle);
        Remove(index);
        delete thread;
    }
    if (destroysItself) {
        ThreadHandle::GetCurrent() = {};
        Platform::ExitThread(0);
    }
}

bool QzThreadManager::CancleManaged(const KeldMBString& name) {
    const GlobalLock::Guard guard(s_lock);
    const int index = Find(name);
    if (index < 0)
        return false;
    m_threads[index]->m_bManaged = 0;
    return true;
}

unsigned int QzThreadManager::GetOptimalCount() const {
    return 2 * static_cast<unsigned int>(QzToolkit::GetCPUCount());
}

int QzThreadManager::GetActiveCount() {
    return m_nActive;
}

void QzThreadManager::DestoryManagedThread(const KeldMBString& name) {
    const int index = Find(name);
    if (index < 0 || m_threads[index]->m_bManaged == 0)
        return;
    QzThreadEx* thread = m_threads[index];
    Remove(index);
    delete thread;
}

// Objects are deleted under the lock, so a thread takes its last step on its object under it too. Only a
// thread that ReleaseAll has left alone does not, and deletes its object itself.
void QzThreadManager::Leave(QzThreadEx* thread, bool byExit) {
    const GlobalLock::Guard guard(s_lock);
    if (thread->m_owner.exchange(QzThreadEx::NoThread) == QzThreadEx::ThreadAlone)
        delete thread;
    else if (byExit)
        ThreadHandle::Close(thread->m_handle);
    else if (thread->m_bManaged != 0)
        DestoryManagedThread(thread->m_strName);
}

void QzThreadManager::ReleaseAll() {
    const GlobalLock::Guard guard(s_lock);
    for (QzThreadEx* thread : m_threads) {
        if (thread->m_owner.exchange(QzThreadEx::ThreadAlone) == QzThreadEx::NoThread)
            delete thread;
    }
    m_threads = KeldArray<QzThreadEx*>();
    m_nActive = 0;
}

int QzThreadManager::Find(const KeldMBString& name) const {
    for (int i = 0; i < m_threads.GetSize(); ++i) {
        if (m_threads[i]->m_strName.CompareNoCase(name) == 0)
            return i;
    }
    return -1;
}

void QzThreadManager::Remove(int index) {
    m_threads.RemoveAt(index);
    m_nActive = m_threads.GetSize();
}

} // namespace Qzc
