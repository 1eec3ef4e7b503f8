// The words of the lock between processes (platform/sharedlock.h) under a model checker, which runs threads in a
// great many orders and lets loads return every value that the memory orders allow. Each thread is a process.
//
// Two ways: with the orders as they are written and sleeps whose time runs out now and then, nothing may be held
// by two and no write may go unseen; with all in one order and sleeps without end, nobody may sleep for ever.

#include "platform/sharedlock.h"

#include <algorithm>
#include <cstdio>
#include <relacy/relacy.hpp>
#include <sstream>

// The checker calls its own things by everybody's names.
#undef Sleep
#undef memory_order_relaxed
#undef memory_order_acquire
#undef memory_order_release
#undef memory_order_acq_rel
#undef memory_order_seq_cst

namespace {

enum class Orders { AsWritten, One };

constexpr std::uint32_t Processes = 3;

template <Orders orders, class T>
class ModelAtomic {
public:
    ModelAtomic() : m_value(T(0)) {}
    T load(std::memory_order order = std::memory_order_seq_cst) const { return m_value.load(Of(order), RL_INFO); }
    void store(T value, std::memory_order order) { m_value.store(value, Of(order), RL_INFO); }
    T exchange(T value, std::memory_order order) { return m_value.exchange(value, Of(order), RL_INFO); }
    T fetch_add(T value, std::memory_order order) { return m_value.fetch_add(value, Of(order), RL_INFO); }
    T fetch_or(T value, std::memory_order order) { return m_value.fetch_or(value, Of(order), RL_INFO); }
    T fetch_and(T value, std::memory_order order) { return m_value.fetch_and(value, Of(order), RL_INFO); }
    bool compare_exchange_strong(T& expected, T value, std::memory_order order, std::memory_order failure) {
        return m_value.compare_exchange_strong(expected, value, Of(order), RL_INFO, Of(failure), RL_INFO);
    }

    bool Sleep(T expected) const {
        auto& value = const_cast<rl::atomic<T>&>(m_value); // the newest, as the system sees it
        if (value.fetch_or(0, rl::mo_seq_cst, RL_INFO) != expected)
            return true;
        return value.wait(rl::ctx(), orders == Orders::AsWritten, true, RL_INFO) != rl::unpark_reason_timeout;
    }
    void Wake(rl::thread_id_t count) const { const_cast<rl::atomic<T>&>(m_value).wake(rl::ctx(), count, RL_INFO); }

private:
    static rl::memory_order Of(std::memory_order order) {
        if (orders == Orders::One)
            return rl::mo_seq_cst;
        switch (order) {
        case std::memory_order_acquire: return rl::mo_acquire;
        case std::memory_order_release: return rl::mo_release;
        case std::memory_order_acq_rel: return rl::mo_acq_rel;
        case std::memory_order_seq_cst: return rl::mo_seq_cst;
        default: return rl::mo_relaxed;
        }
    }
    rl::atomic<T> m_value;
};

/// The memory as one process has it open.
template <Orders orders>
class ModelMemory {
public:
    using Opener = std::uint32_t;
    template <class T>
    using Atomic = ModelAtomic<orders, T>;
    struct Clock {
        using time_point = std::chrono::steady_clock::time_point;
        static time_point now() { return time_point(); } // no time runs out but a sleep's
    };

    struct World {
        Atomic<std::uint64_t> slots[Processes];
        Atomic<std::uint32_t> gone[Processes];
    };

    ModelMemory(World& world, unsigned self) : m_world(world), m_self(self) {
        OwnSlot().store(std::uint64_t(Self()) << 32, std::memory_order_seq_cst);
    }
    Opener Self() const { return m_self + 1; }
    bool IsThere(Opener opener) const { return m_world.gone[opener - 1].load(std::memory_order_acquire) == 0; }
    void End() { m_world.gone[m_self].store(1, std::memory_order_release); }
    Atomic<std::uint64_t>& OwnSlot() const { return m_world.slots[m_self]; }
    Atomic<std::uint64_t>& Slot(std::uint32_t index) const { return m_world.slots[index]; }
    std::uint32_t SlotsUsed() const { return Processes; }
    static Opener SlotOpener(std::uint64_t slot) { return static_cast<Opener>(slot >> 32); }
    bool Sleep(const Atomic<std::uint32_t>& word, std::uint32_t expected, std::chrono::nanoseconds) const {
        return word.Sleep(expected);
    }
    void WakeOne(const Atomic<std::uint32_t>& word) const { word.Wake(1); }
    void WakeAll(const Atomic<std::uint32_t>& word) const { word.Wake(Processes); }

private:
    World& m_world;
    unsigned m_self;
};

constexpr auto NoDeadline = std::chrono::steady_clock::time_point::max();

/// So many write, the others read; with `ends`, the last of them never gives back the first lock that it gets.
template <Orders orders, unsigned writers, bool ends>
struct LockTest : rl::test_suite<LockTest<orders, writers, ends>, Processes> {
    using Memory = ModelMemory<orders>;
    using Lock = Platform::BasicSharedLock<Memory>;
    typename Memory::World world;
    typename Lock::State state;
    rl::var<int> written;
    rl::var<int> lost;

    void before() {
        written(RL_INFO) = 0;
        lost(RL_INFO) = 0;
    }
    void thread(unsigned self) {
        Memory memory(world, self);
        Lock lock(memory, state);
        const bool writes = self < writers;
        for (int round = 0; round < 2; ++round) {
            typename Lock::Outcome outcome;
            if (!(writes ? lock.TryWrite() : lock.TryRead())) {
                outcome = writes ? lock.Write(NoDeadline) : lock.Read(NoDeadline);
                RL_ASSERT(outcome.taken);
            }
            if (writes) {
                written(RL_INFO) = written(RL_INFO) + 1;
                if (outcome.lostWriter)
                    lost(RL_INFO) = lost(RL_INFO) + 1;
            } else {
                RL_ASSERT(written(RL_INFO) <= int(2 * writers));
            }
            if (ends && self == Processes - 1)
                return memory.End();
            writes ? lock.EndWrite() : lock.EndRead();
        }
    }
    void after() {
        constexpr bool LosesAWriter = ends && writers == Processes;
        RL_ASSERT(written(RL_INFO) == int(2 * writers - LosesAWriter));
        RL_ASSERT(lost(RL_INFO) <= int(LosesAWriter));
    }
};

template <class Test>
bool Holds(unsigned rounds) {
    std::ostringstream words;
    rl::test_params parameters;
    parameters.search_type = rl::random_scheduler_type;
    parameters.iteration_count = rounds;
    parameters.execution_depth_limit = 20000;
    parameters.output_stream = &words;
    parameters.progress_stream = &words;
    const bool holds = rl::simulate<Test>(parameters);
    if (!holds)
        std::printf("%s: %s\n", parameters.test_name.c_str(), words.str().substr(0, 20000).c_str());
    return holds;
}

} // namespace

// The argument: how many random runs of each (without it, some seconds' worth).
int main(int argc, char** argv) {
    const unsigned rounds = argc > 1 ? unsigned(std::stoul(argv[1])) : 20000;
    const bool holds[] = {
        Holds<LockTest<Orders::AsWritten, 1, false>>(rounds), Holds<LockTest<Orders::AsWritten, 1, true>>(rounds),
        Holds<LockTest<Orders::AsWritten, 2, false>>(rounds), Holds<LockTest<Orders::AsWritten, 3, true>>(rounds),
        Holds<LockTest<Orders::One, 1, false>>(rounds),       Holds<LockTest<Orders::One, 2, false>>(rounds),
        Holds<LockTest<Orders::One, 3, false>>(rounds)};
    return std::all_of(std::begin(holds), std::end(holds), [](bool one) { return one; }) ? 0 : 1;
}
