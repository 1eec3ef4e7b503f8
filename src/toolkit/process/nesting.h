#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace Qzc {

/// How often the threads of a process have locked something that they hold together, and a lock on that number,
/// in one word. Who raises it from 0 or lowers it to 0 stays inside, and keeps the others waiting, until it has
/// taken the thing or given it back.
class Nesting {
public:
    using Deadline = std::chrono::steady_clock::time_point;
    enum class Entry {
        First,  ///< the number is 1, and the thread is inside
        Nested, ///< it was not 0
        Refused ///< nothing has changed: the time is up, or the number is at its end
    };

    Entry Enter(Deadline deadline = Deadline::max()) {
        std::uint32_t word = 0;
        if (m_word.compare_exchange_strong(word, Inside | 1, std::memory_order_acquire, std::memory_order_relaxed))
            return Entry::First;
        return EnterSlowly(deadline);
    }

    /// One less, unless it is 0. True when it became 0: then the thread is inside.
    bool Leave() {
        std::uint32_t word = 1;
        if (m_word.compare_exchange_strong(word, Inside, std::memory_order_acquire, std::memory_order_relaxed))
            return true;
        return LeaveSlowly();
    }

    void GoInside(); ///< whatever the number

    /// Leaves the inside. A thread that comes to wait in this very moment may not be woken, but it does not sleep
    /// for longer than a millisecond at first: so nobody pays for the certainty.
    void GoOutside() {
        const std::uint32_t word = m_word.load(std::memory_order_relaxed);
        if ((word & Waiting) == 0)
            m_word.store(word & Count, std::memory_order_release);
        else
            WakeAndGoOutside();
    }
    void Clear() { m_word.fetch_and(~Count, std::memory_order_relaxed); } ///< the number; from inside

    /// While one lives, in a thread that is inside, this thread may enter and leave nevertheless.
    class Recursion {
    public:
        explicit Recursion(Nesting& nesting) : m_nesting(nesting) { nesting.m_recursing = ThisThread(); }
        ~Recursion() { m_nesting.m_recursing = nullptr; }
        Recursion(const Recursion&) = delete;
        Recursion& operator=(const Recursion&) = delete;

    private:
        Nesting& m_nesting;
    };
    bool IsRecursion() const { return m_recursing == ThisThread(); }

    /// In the child of a fork, where none of the others is.
    void Forget() { m_word = 0; }

private:
    static constexpr std::uint32_t Inside = 0x80000000;
    static constexpr std::uint32_t Waiting = 0x40000000; ///< somebody may be asleep until the thread inside is out
    static constexpr std::uint32_t Count = 0x3FFFFFFF;

    static const void* ThisThread();
    Entry EnterSlowly(Deadline deadline);
    bool LeaveSlowly();
    bool WaitOutside(std::uint32_t word, bool& slept, Deadline deadline);
    void WakeAndGoOutside();

    std::atomic<std::uint32_t> m_word{0};
    std::atomic<const void*> m_recursing{nullptr};
};

} // namespace Qzc
