#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "platform/sharedmemory.h"
#include "platform/waitword.h"

namespace Platform {

/// For whom a unit is taken.
enum class Taker {
    Self,
    Group ///< several openers as one, on whose lives the caller keeps records: a unit that never is abandoned
};

/// A counting semaphore that processes share under a name, with the name and the life of SharedMemory: who
/// opens a name that nobody has open gets a semaphore with its initial count, whatever the last user left.
///
/// It remembers who took the last unit. If that opener ends or closes the semaphore without giving the unit
/// back, a waiter gets it and learns so. A semaphore of one unit thus is a lock that survives its holder.
/// Where the system cannot tell that an opener is gone, such a waiter's time runs out instead.
///
/// A unit may be given back by anybody. A child made by fork is an opener of its own: what its parent has
/// taken stays taken by the parent.
class NamedSemaphore {
public:
    enum class Waited {
        Acquired,
        Abandoned, ///< acquired, from an opener that is gone
        TimedOut
    };
    /// How long a waiter sleeps before it asks whether the holder is still there, in milliseconds.
    static constexpr std::int64_t CheckInterval = 10;

    /// Closes what was open. The initial count and the maximum, at most 2^31-1, are those of the creator.
    /// `partOf` as in SharedMemory::Options.
    SharedMemory::Opening Open(std::string_view name, std::uint32_t initialCount, std::uint32_t maximum,
                               std::uint64_t partOf = 0);
    void Close() { m_memory.Close(); }
    bool IsOpen() const { return m_memory.IsOpen(); }
    std::uint64_t Life() const { return m_memory.Life(); }

    /// Takes a unit, within so many milliseconds. Also at the end of that time, and with 0, the holder's life
    /// is checked.
    Waited Wait(std::int64_t milliseconds, Taker taker = Taker::Self) {
        return TryTake(HolderFor(taker)) ? Waited::Acquired : WaitSlowly(milliseconds, HolderFor(taker));
    }

    /// Gives a unit back; false, and nothing done, when the maximum is reached.
    bool Post() {
        std::uint64_t state = Shared().state.load(std::memory_order_relaxed);
        do {
            if ((state & CountMask) == Shared().maximum)
                return false;
        } while (!Shared().state.compare_exchange_weak(state, (state & CountMask) + 1, std::memory_order_release,
                                                       std::memory_order_relaxed));
        if ((state & Waiters) != 0)
            Wake();
        return true;
    }

    bool IsTakenByGroup() const {
        const std::uint64_t state = Shared().state.load(std::memory_order_relaxed);
        return (state & CountMask) == 0 && Holder(state) == Group;
    }

private:
    // The count, whether somebody may be asleep and, while the count is 0, who took the last unit, all in one
    // word: whoever ends between any two instructions leaves a word that tells the truth.
    struct SharedState {
        std::atomic<std::uint64_t> state;
        std::atomic<std::uint32_t> wakes; ///< counts posts with sleepers, who sleep on it
        std::uint32_t maximum;
    };
    static constexpr std::uint64_t CountMask = 0x7FFFFFFF;
    static constexpr std::uint64_t Waiters = 0x80000000;
    static constexpr int HolderShift = 32;
    static constexpr SharedMemory::Opener Group = 0xFFFFFFFF;

    SharedState& Shared() const { return *static_cast<SharedState*>(m_memory.View()); }
    SharedMemory::Opener HolderFor(Taker taker) const { return taker == Taker::Group ? Group : m_memory.Self(); }
    static SharedMemory::Opener Holder(std::uint64_t state) {
        return static_cast<SharedMemory::Opener>(state >> HolderShift);
    }
    static std::uint64_t WithoutOneUnit(std::uint64_t state, SharedMemory::Opener holder) {
        const bool last = (state & CountMask) == 1;
        return (state - 1) | (last ? std::uint64_t(holder) << HolderShift : 0);
    }

    bool TryTake(SharedMemory::Opener holder) {
        std::uint64_t state = Shared().state.load(std::memory_order_relaxed);
        while ((state & CountMask) != 0) {
            if (Shared().state.compare_exchange_weak(state, WithoutOneUnit(state, holder), std::memory_order_acquire,
                                                     std::memory_order_relaxed))
                return true;
        }
        return false;
    }
    Waited WaitSlowly(std::int64_t milliseconds, SharedMemory::Opener holder);
    void Wake();

    SharedMemory m_memory;
};

} // namespace Platform
