#pragma once

#include <atomic>
#include <cstdint>

#include "platform/binarylock.h"
#include "platform/threadkey.h"

namespace Platform {

/// A lock that its owner may take again; it is free after as many releases. A release by a thread that does
/// not own it does nothing.
///
/// As long as the process has one thread it makes no atomic step, which costs several times as much as a plain one.
/// The owner has a word of its own: to read the one that was just changed by an atomic step costs nearly as much again.
class RecursiveLock {
public:
    void Lock() {
        const std::uint64_t self = CurrentThreadKey();
        if (m_owner.load(std::memory_order_relaxed) == self) {
            ++m_depth;
            return;
        }
        m_lock.Lock();
        m_owner.store(self, std::memory_order_relaxed);
    }
    bool TryLock() {
        const std::uint64_t self = CurrentThreadKey();
        if (m_owner.load(std::memory_order_relaxed) == self) {
            ++m_depth;
            return true;
        }
        if (!m_lock.TryLock())
            return false;
        m_owner.store(self, std::memory_order_relaxed);
        return true;
    }
    void Unlock() {
        if (m_owner.load(std::memory_order_relaxed) != CurrentThreadKey())
            return;
        if (m_depth != 0) {
            --m_depth;
            return;
        }
        m_owner.store(0, std::memory_order_relaxed);
        m_lock.Unlock();
    }

private:
    BinaryLock m_lock;
    std::uint32_t m_depth = 0; ///< how often the owner has taken it again
    std::atomic<std::uint64_t> m_owner{0};
};

} // namespace Platform
