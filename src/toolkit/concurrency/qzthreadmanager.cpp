#include "toolkit/qzthreadmanager.h"

#include <functional>
#include <memory>
#include <new>
#include <string>

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

/// Equal for names that compare equal whatever their charset: also bytes that only look like letters are folded.
std::size_t NameHash(const KeldMBString& name) {
    std::string folded(name.View());
    for (char& byte : folded)
        byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
    return std::hash<std::string>()(folded);
}

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
    if (Find(name) != m_threads.end())
        return nullptr;
    const std::uint64_t number = m_nLastNumber + 1;
    try {
        std::unique_ptr<QzThreadEx, void (*)(QzThreadEx*)> thread(new QzThreadEx(name, func, arg, managed),
                                                                  [](QzThreadEx* failed) { delete failed; });
        const auto known = m_numbers.emplace(NameHash(name), number);
        try {
            m_threads.emplace_hint(m_threads.end(), number, thread.get());
        } catch (const std::bad_alloc&) {
            m_numbers.erase(known);
            return nullptr;
        }
        m_nLastNumber = number;
        m_nActive = static_cast<int>(m_threads.size());
        return thread.release();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

QzThreadEx* QzThreadManager::GetThread(const KeldMBString& name) {
    const GlobalLock::Guard guard(s_lock);
    const auto found = Find(name);
    if (found != m_threads.end())
        return found->second;
    return m_threads.empty() ? nullptr : m_threads.rbegin()->second;
}

void QzThreadManager::DestoryThread(const KeldMBString& name) {
    bool destroysItself = false;
    {
        const GlobalLock::Guard guard(s_lock);
        const auto found = Find(name);
        if (found == m_threads.end())
            return;
        QzThreadEx* thread = found->second;
        destroysItself = thread == ThreadHandle::GetCurrent().object;
        if (!destroysItself)
            ThreadHandle::Terminate(thread->m_handle);
        Remove(found);
        delete thread;
    }
    if (destroysItself) {
        ThreadHandle::GetCurrent() = {};
        Platform::ExitThread(0);
    }
}

bool QzThreadManager::CancleManaged(const KeldMBString& name) {
    const GlobalLock::Guard guard(s_lock);
    const auto found = Find(name);
    if (found == m_threads.end())
        return false;
    found->second->m_bManaged = 0;
    return true;
}

unsigned int QzThreadManager::GetOptimalCount() const {
    return 2 * static_cast<unsigned int>(QzToolkit::GetCPUCount());
}

int QzThreadManager::GetActiveCount() {
    return m_nActive;
}

void QzThreadManager::DestoryManagedThread(const KeldMBString& name) {
    const auto found = Find(name, true);
    if (found == m_threads.end())
        return;
    QzThreadEx* thread = found->second;
    Remove(found);
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
    for (const auto& [number, thread] : m_threads) {
        if (thread->m_owner.exchange(QzThreadEx::ThreadAlone) == QzThreadEx::NoThread)
            delete thread;
    }
    m_threads.clear();
    m_numbers.clear();
    m_nActive = 0;
}

QzThreadManager::Threads::iterator QzThreadManager::Find(const KeldMBString& name, bool managedOnly) {
    auto first = m_threads.end();
    const auto [begin, end] = m_numbers.equal_range(NameHash(name));
    for (auto candidate = begin; candidate != end; ++candidate) {
        const auto thread = m_threads.find(candidate->second);
        const bool fits =
            thread->second->m_strName.CompareNoCase(name) == 0 && (!managedOnly || thread->second->m_bManaged != 0);
        if (fits && (first == m_threads.end() || thread->first < first->first))
            first = thread;
    }
    return first;
}

void QzThreadManager::Remove(Threads::iterator thread) {
    auto [candidate, end] = m_numbers.equal_range(NameHash(thread->second->m_strName));
    while (candidate != end && candidate->second != thread->first)
        ++candidate;
    if (candidate != end)
        m_numbers.erase(candidate);
    m_threads.erase(thread);
    m_nActive = static_cast<int>(m_threads.size());
}

} // namespace Qzc
