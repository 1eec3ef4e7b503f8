#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "platform/sharedmemory.h"
#include "platform/waitword.h"

/// The words that make locks between processes: one for a single holder, and one for a writer or many readers on
/// top of it. They lie in SharedMemory; a process that ends, between any two instructions, leaves words that tell
/// the truth. `Memory` is SharedMemory; tests put a model in its place.
namespace Platform {

/// What a wait came to.
enum class Waited {
    Acquired,
    Abandoned, ///< acquired, from an opener that is gone
    TimedOut
};

/// Why a lock is taken.
enum class Purpose : std::uint32_t {
    Keep = 0,
    Pass = 0x80000000 ///< to give it back at once; one that is lost on the way is not called abandoned
};

/// A lock for one opener. It knows its holder: if that closes the memory or ends without giving the lock back, a
/// waiter gets it and learns so. Where the system cannot tell that an opener is gone, such a waiter's time runs
/// out instead. Who has waited for longer than the check interval comes before those who have not.
///
/// A child made by fork is an opener of its own: what its parent has taken stays the parent's.
template <class Memory>
class BasicSharedMutex {
public:
    using Clock = typename Memory::Clock;
    using Deadline = typename Clock::time_point;
    using Word = typename Memory::template Atomic<std::uint32_t>;

    struct State {   // all zero: free
        Word holder; ///< 0: nobody; else the holder's number, and Purpose in the highest bit
        Word flags;  ///< Waiters, Hungry
        Word wakes;  ///< counts those of sleepers, who sleep on it
        std::uint32_t unused;
    };

    /// How long a waiter sleeps before it asks whether the holder is still there.
    static constexpr std::chrono::milliseconds CheckInterval{10};

    BasicSharedMutex(Memory& memory, State& state) : m_memory(memory), m_state(state) {}

    /// False as well when it is free and somebody has waited for it too long.
    bool TryTake(Purpose purpose = Purpose::Keep) {
        std::uint32_t nobody = 0;
        return IsOpen() && m_state.holder.compare_exchange_strong(nobody, Mine(purpose), std::memory_order_seq_cst,
                                                                  std::memory_order_relaxed);
    }

    /// Whether TryTake would have taken it.
    bool IsOpen() const {
        return m_state.holder.load(std::memory_order_seq_cst) == 0 &&
               (m_state.flags.load(std::memory_order_relaxed) & Hungry) == 0;
    }

    /// When TryTake could not. Also at the deadline, and after it, the holder's life is checked.
    ///
    /// A waiter that may have slept says that others may still sleep, since it cannot know. If the one that was
    /// woken is ended before it takes the lock, the others wake by themselves after the check interval. So does
    /// one that finds Hungry left by a waiter that is gone.
    Waited Wait(Deadline deadline, Purpose purpose = Purpose::Keep) {
        // What is held for a moment only is waited for without a word to anybody, and with looks that get rarer: each
        // takes the holder's cache line away.
        for (int pauses = 1; pauses <= MostPauses; pauses *= 2) {
            for (int i = 0; i < pauses; ++i)
                PauseSpinning();
            if (TryTake(purpose))
                return Waited::Acquired;
        }
        bool check = Clock::now() >= deadline;
        bool hungry = false;
        for (std::uint32_t said = 0;;) {
            const std::uint32_t wakes = m_state.wakes.load(std::memory_order_acquire);
            std::uint32_t holder = m_state.holder.load(std::memory_order_seq_cst);
            const bool free = holder == 0;
            const bool gone = check && !free && !m_memory.IsThere(holder & ~std::uint32_t(Purpose::Pass));
            const bool turn = hungry || (m_state.flags.load(std::memory_order_relaxed) & Hungry) == 0;
            if ((free && turn) || gone) {
                if (!m_state.holder.compare_exchange_strong(holder, Mine(purpose), std::memory_order_seq_cst,
                                                            std::memory_order_relaxed))
                    continue;
                if (hungry) // others who are will say so again
                    m_state.flags.fetch_and(~Hungry, std::memory_order_relaxed);
                if (said != 0)
                    m_state.flags.fetch_or(Waiters, std::memory_order_relaxed);
                return free || (holder & std::uint32_t(Purpose::Pass)) != 0 ? Waited::Acquired : Waited::Abandoned;
            }
            const auto now = Clock::now();
            if (check && now >= deadline) {
                if (hungry)
                    m_state.flags.fetch_and(~Hungry, std::memory_order_relaxed);
                return Waited::TimedOut;
            }
            const std::uint32_t say = Waiters | (hungry ? Hungry : 0);
            if ((m_state.flags.load(std::memory_order_relaxed) & say) != say || said != say) {
                said = say;
                m_state.flags.fetch_or(say, std::memory_order_seq_cst);
                LetStoresArrive();
                continue;
            }
            check = !m_memory.Sleep(
                m_state.wakes, wakes,
                std::clamp<std::chrono::nanoseconds>(deadline - now, std::chrono::nanoseconds(0), CheckInterval));
            hungry = hungry || check;
        }
    }

    /// By the holder. The store and the load are not in one order with what a waiter does, which would cost a
    /// second time what taking does: a waiter may see the lock taken, and still not be seen. By the time that it
    /// looks again, before it sleeps, the store has arrived; or else it looks again after its sleep.
    void Release() {
        m_state.holder.store(0, std::memory_order_release);
        if (m_state.flags.load(std::memory_order_relaxed) != 0)
            Wake();
    }

    void SetPurpose(Purpose purpose) { m_state.holder.store(Mine(purpose), std::memory_order_relaxed); } ///< likewise

    /// For longer than a store of another processor is under way.
    static void LetStoresArrive() {
        for (int i = 0; i < SpinCount; ++i)
            PauseSpinning();
    }

private:
    static constexpr std::uint32_t Waiters = 1; ///< somebody may be asleep
    static constexpr int MostPauses = 64;
    static constexpr std::uint32_t Hungry = 2; ///< somebody has waited for long: others stand back

    std::uint32_t Mine(Purpose purpose) const { return m_memory.Self() | std::uint32_t(purpose); }

    void Wake() {
        const std::uint32_t flags = m_state.flags.fetch_and(~Waiters, std::memory_order_relaxed);
        m_state.wakes.fetch_add(1, std::memory_order_release);
        if ((flags & Hungry) != 0)
            m_memory.WakeAll(m_state.wakes);
        else if ((flags & Waiters) != 0)
            m_memory.WakeOne(m_state.wakes);
    }

    Memory& m_memory;
    State& m_state;
};

/// A lock for one writer or many readers, each of them an opener of the memory. It takes the two lowest bits of
/// the slots' lower halves; the other bits there are the opener's own to use.
///
///     a reader                           a writer
///     says in its slot that it reads     takes the exclusion
///     sees the exclusion free            sees no slot whose opener reads
///
/// All four in one order that every processor sees: of a reader and a writer, one at least sees the other. The
/// reader then takes back what it said, and waits for the exclusion; the writer waits for the reader. A reader
/// whose opener is gone counts as none.
///
/// Readers come in while a writer waits for others: it holds the exclusion, and so keeps them out, for a moment
/// only. The moments get longer, so reads that end within the longest cannot keep a writer out for ever; and
/// between them whoever waits gets in.
template <class Memory>
class BasicSharedLock {
public:
    using Mutex = BasicSharedMutex<Memory>;
    using Clock = typename Memory::Clock;
    using Deadline = typename Clock::time_point;
    template <class T>
    using Atomic = typename Memory::template Atomic<T>;

    struct State {
        typename Mutex::State exclusion;
        Atomic<std::uint32_t> draining; ///< 1: a writer sleeps on it until readers leave
        std::uint32_t unused;
    };

    static constexpr std::uint64_t Reading = 1;
    static constexpr std::uint64_t GaveUp = 2; ///< see CountAsReading
    static constexpr std::chrono::milliseconds FirstPatience{10};
    static constexpr std::chrono::milliseconds LongestPatience{1000};

    struct Outcome {
        bool taken = false;
        bool lostWriter = false;  ///< the exclusion was that of an opener that is gone
        bool lostReaders = false; ///< an opener that is gone was reading
    };

    BasicSharedLock(Memory& memory, State& state)
        : m_memory(memory), m_state(state), m_exclusion(memory, state.exclusion) {}

    Mutex& Exclusion() { return m_exclusion; }

    bool TryRead() {
        m_memory.OwnSlot().fetch_or(Reading, std::memory_order_seq_cst);
        if (m_exclusion.IsOpen())
            return true;
        EndRead();
        return false;
    }

    /// When TryRead could not.
    Outcome Read(Deadline deadline) {
        Outcome outcome;
        if (IsJoined()) {
            m_memory.OwnSlot().fetch_or(Reading, std::memory_order_seq_cst);
            outcome.taken = true;
            return outcome;
        }
        const Waited waited = m_exclusion.Wait(deadline, Purpose::Pass);
        outcome.lostWriter = waited == Waited::Abandoned;
        outcome.taken = waited != Waited::TimedOut;
        if (outcome.taken) {
            m_memory.OwnSlot().fetch_or(Reading, std::memory_order_seq_cst);
            m_exclusion.Release(); // and so wakes the next
        }
        return outcome;
    }

    /// A reader whose time has run out counts as one that reads, up to its EndRead: the readers that come then join
    /// it, and do not wait for the writer that it waited for. No writer waits for it.
    void CountAsReading() { m_memory.OwnSlot().fetch_or(GaveUp, std::memory_order_seq_cst); }

    /// Not in one order with what the writer does, which would cost a second time what TryRead does: a writer
    /// may see the reader, and still not be seen by it. By the time that the writer sleeps, after it has looked
    /// again for a while, the store has long arrived; or else it looks again after a nap.
    void EndRead() {
        Atomic<std::uint64_t>& slot = m_memory.OwnSlot();
        slot.store(slot.load(std::memory_order_relaxed) & ~(Reading | GaveUp), std::memory_order_release);
        if (m_state.draining.load(std::memory_order_relaxed) == 1 &&
            m_state.draining.exchange(0, std::memory_order_relaxed) == 1)
            m_memory.WakeAll(m_state.draining);
    }

    bool TryWrite() {
        if (!m_exclusion.TryTake())
            return false;
        if (!IsRead())
            return true;
        m_exclusion.Release();
        return false;
    }

    /// When TryWrite could not.
    Outcome Write(Deadline deadline) {
        Outcome outcome;
        for (auto patience = FirstPatience;; patience = std::min(2 * patience, LongestPatience)) {
            const Waited waited = m_exclusion.Wait(deadline, Purpose::Pass);
            if (waited == Waited::TimedOut)
                return outcome;
            outcome.lostWriter = outcome.lostWriter || waited == Waited::Abandoned;
            if (!IsRead() || WaitForReaders(std::min(deadline, Clock::now() + patience), outcome.lostReaders)) {
                m_exclusion.SetPurpose(Purpose::Keep);
                outcome.taken = true;
                return outcome;
            }
            m_exclusion.Release();
            if (Clock::now() >= deadline)
                return outcome;
            Doze(std::min<std::chrono::nanoseconds>(deadline - Clock::now(), FirstPatience));
        }
    }

    void EndWrite() { m_exclusion.Release(); }

    /// For who only looks. Whoever has it for writing now, `Nobody` for none: an opener that is gone has it not.
    typename Memory::Opener Writer() const {
        const std::uint32_t holder = m_state.exclusion.holder.load(std::memory_order_acquire);
        const bool keeps = holder != 0 && (holder & std::uint32_t(Purpose::Pass)) == 0;
        return keeps && m_memory.IsThere(holder) ? holder : Memory::Nobody;
    }

    /// Frees the slots of openers that were reading when they ended; whether there was any.
    bool ForgetLostReaders() {
        bool lost = false;
        IsRead(&lost);
        return lost;
    }

private:
    static constexpr std::chrono::milliseconds FirstNap{2};

    // With `lost`, the system is asked about each reader. One that gets a slot behind those used so far begins to
    // read after the exclusion was taken, and sees that.
    bool IsRead(bool* lost = nullptr) {
        bool read = false;
        const std::uint32_t used = m_memory.SlotsUsed();
        for (std::uint32_t i = 0; i < used && (!read || lost != nullptr); ++i) {
            std::uint64_t slot = m_memory.Slot(i).load(std::memory_order_seq_cst);
            if ((slot & Reading) == 0)
                continue;
            if (lost == nullptr || m_memory.IsThere(Memory::SlotOpener(slot)))
                read = true;
            else if (m_memory.Slot(i).compare_exchange_strong(slot, 0, std::memory_order_acq_rel,
                                                              std::memory_order_relaxed))
                *lost = true;
        }
        return read;
    }

    bool IsJoined() const {
        const std::uint32_t used = m_memory.SlotsUsed();
        for (std::uint32_t i = 0; i < used; ++i) {
            const std::uint64_t slot = m_memory.Slot(i).load(std::memory_order_relaxed);
            if ((slot & GaveUp) != 0 && m_memory.IsThere(Memory::SlotOpener(slot)))
                return true;
        }
        return false;
    }

    // With the exclusion.
    bool WaitForReaders(Deadline until, bool& lost) {
        Mutex::LetStoresArrive(); // most reads are short
        if (!IsRead())
            return true;
        bool timeIsUp = Clock::now() >= until;
        bool ask = timeIsUp;
        for (std::chrono::nanoseconds nap = FirstNap;; nap = Mutex::CheckInterval) {
            m_state.draining.store(1, std::memory_order_seq_cst);
            Mutex::LetStoresArrive();
            if (!IsRead(ask ? &lost : nullptr)) {
                m_state.draining.store(0, std::memory_order_relaxed);
                return true;
            }
            if (timeIsUp)
                return false;
            const auto now = Clock::now();
            timeIsUp = now >= until;
            ask =
                timeIsUp || !m_memory.Sleep(m_state.draining, 1, std::min<std::chrono::nanoseconds>(nap, until - now));
        }
    }

    void Doze(std::chrono::nanoseconds time) {
        m_state.draining.store(1, std::memory_order_seq_cst);
        if (IsRead())
            m_memory.Sleep(m_state.draining, 1, time);
    }

    Memory& m_memory;
    State& m_state;
    Mutex m_exclusion;
};

using SharedMutex = BasicSharedMutex<SharedMemory>;
using SharedLock = BasicSharedLock<SharedMemory>;

} // namespace Platform
