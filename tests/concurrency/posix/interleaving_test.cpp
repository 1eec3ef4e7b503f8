// The locks in every order of their steps: the platform's own headers, with steps, sleeps and wakes that the test
// plays.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>

#include "concurrency/posix/interleaving.h"

namespace std {

template <class T>
class PlayedAtomic {
public:
    constexpr PlayedAtomic(T value = T()) : m_value(value) {}
    PlayedAtomic(const PlayedAtomic&) = delete;

    T load(memory_order = {}) const { return Interleaving::Step(), m_value; }
    void store(T value, memory_order = {}) { exchange(value); }
    T exchange(T value, memory_order = {}) { return Interleaving::Step(), Put(value); }
    T fetch_add(T value, memory_order = {}) { return Interleaving::Step(), Put(static_cast<T>(m_value + value)); }
    T fetch_sub(T value, memory_order = {}) { return Interleaving::Step(), Put(static_cast<T>(m_value - value)); }
    T fetch_and(T value, memory_order = {}) { return Interleaving::Step(), Put(static_cast<T>(m_value & value)); }
    bool compare_exchange_strong(T& expected, T value, memory_order = {}, memory_order = {}) {
        const T before = load();
        if (before == expected)
            m_value = value;
        return before == expected || (expected = before, false);
    }
    bool compare_exchange_weak(T& expected, T value, memory_order = {}, memory_order = {}) {
        return compare_exchange_strong(expected, value);
    }

private:
    T Put(T value) { return std::exchange(m_value, value); }

    T m_value;
};

} // namespace std

#define CurrentThreadKey RealThreadKey // tells apart the system's threads
#include "platform/threadkey.h"
#undef CurrentThreadKey
namespace Platform {
static std::uint64_t CurrentThreadKey() {
    return Interleaving::Self() + 1;
}
} // namespace Platform

#define atomic PlayedAtomic
#define SpinCount RealSpinCount // a second look shows what the tenth would
#define MostPauses RealMostPauses
#include "platform/waitword.h"
#undef SpinCount
#undef MostPauses
namespace Platform {
constexpr int SpinCount = 1;
constexpr int MostPauses = 1;
} // namespace Platform
#include "platform/condition.h"
#include "platform/readwritelock.h"
#include "platform/semaphore.h"
#include "platform/unitlock.h"
#undef atomic

namespace Platform {

static const volatile char s_several = 0;
const volatile char& s_isOnlyThread = s_several;

void RaiseShield() {}
void LowerShield() {
    Interleaving::Step(true);
}
bool WaitOnWord(const void* word, std::uint32_t expected, std::int64_t microseconds) {
    return Interleaving::Sleep(word, expected, microseconds >= 0);
}
void WakeOneWaiter(const void* word) {
    Interleaving::Wake(word, false);
}
void WakeAllWaiters(const void* word) {
    Interleaving::Wake(word, true);
}
LastAct::LastAct(void (*act)(void*), void* object) : m_act(act), m_object(object) {
    Interleaving::SetLastAct([this] { m_act(m_object); });
}
LastAct::~LastAct() {
    Interleaving::SetLastAct({});
}

} // namespace Platform

using namespace Platform;

namespace {

void Want(bool right, const char* what) {
    if (!right)
        throw std::runtime_error(what);
}

// What threads do with an object, a letter for each thing, and how it must be left.

/// It is given back without an atomic step, which may overwrite a mark that a sleeper makes in the midst of that. No
/// other wake is lost, and who missed one looks again soon.
struct Binary {
    BinaryLock lock;
    int givingBack = 0;
    bool mayMissOne = false;

    void Do(char letter) {
        BinaryLock::Naps naps;
        if (letter == 't' && !lock.TryLock())
            return;
        for (; letter == 'u' && !lock.TryLockOrMark(); lock.Sleep(naps))
            mayMissOne = mayMissOne || givingBack != 0;
        Interleaving::Step();
        ++givingBack;
        lock.Unlock();
        --givingBack;
    }
    bool IsWhole() const { return Interleaving::Rescues() == 0 || mayMissOne; }
};

struct Room {
    ReadWriteLock lock;
    int readers = 0;
    int writers = 0;

    void Do(char letter) {
        switch (letter) {
        case 'r':
        case 'R':
            lock.LockRead();
            ++readers;
            Want(writers == 0, "a reader beside a writer");
            if (letter == 'R') { // where one reads another one comes in, whoever waits
                Want(lock.TryLockRead(), "a reader is kept out by a writer that waits");
                lock.UnlockRead();
            }
            Interleaving::Step();
            --readers;
            lock.UnlockRead();
            break;
        case 'w':
            lock.LockWrite();
            Want(++writers == 1 && readers == 0, "a writer beside others");
            lock.UnlockRead(); // nobody reads; it takes none away that waits
            Interleaving::Step();
            --writers;
            lock.UnlockWrite();
            break;
        case '(': lock.LockWrite(); break;
        default: lock.UnlockWrite();
        }
    }
    bool IsWhole() {
        lock.UnlockRead(); // nobody reads: it does nothing
        return lock.TryLockWrite();
    }
};

/// Each signal lets one go that waited before it, each broadcast all of them.
struct Waiters {
    Condition condition;
    std::vector<Condition::Ticket> tickets;

    void Do(char letter) {
        switch (letter) {
        case '+': tickets.push_back(condition.Enter()); break;
        case 's': condition.Signal(); break;
        case 'b': condition.Broadcast(); break;
        case 'l': Want(!condition.Wait(condition.Enter(), 1000), "a signal before the wait"); break;
        case 'h': // gives up soon, at the moment of the signal or not
            if (condition.Wait(tickets.back(), 1000))
                condition.Signal(); // it was for the other one
            break;
        default: condition.Wait(tickets[static_cast<std::size_t>(letter - '0')], NoTimeout);
        }
    }
    bool IsWhole() { // nobody is counted any more, and nobody may go
        condition.Broadcast();
        condition.Signal();
        const auto first = condition.Enter();
        const auto second = condition.Enter();
        condition.Signal();
        return condition.Wait(second, 0) && !condition.Wait(first, 0);
    }
};

struct Counted {
    Semaphore semaphore{0};
    int units = 0;

    void Do(char letter) {
        if (letter == 'p') {
            semaphore.Post();
            ++units;
        } else if (letter == 'w') {
            semaphore.Wait();
            --units;
        } else if (semaphore.TimedWait(1000)) {
            semaphore.Post();
        }
    }
    bool IsWhole() {
        for (; units > 0 && semaphore.TryWait(); --units) {
        }
        return units == 0 && !semaphore.TryWait();
    }
};

/// Everybody wants a unit and the lock.
struct Units {
    UnitLock units;
    int inside = 0;

    void Do(char letter) {
        if (letter == 'p')
            return units.Post(1);
        const bool takes = letter == 't' || letter == 'T';
        takes ? units.LockWithUnit() : units.Lock();
        Want(++inside == 1, "two with the lock");
        Interleaving::Step();
        --inside;
        if (letter == 'T' || letter == 'a')
            units.AddUnit();
        units.Unlock();
    }
    bool IsWhole() const { return true; }
};

/// Plays what the threads do, and before them what is done `first`, in every order.
template <class Object>
void ExpectAllOrdersGood(const std::vector<std::string>& threads, const std::string& first = "",
                         std::size_t victim = SIZE_MAX) {
    const auto make = [&] {
        const auto object = std::make_shared<Object>();
        const auto play = [object](const std::string& letters) {
            for (const char letter : letters)
                object->Do(letter);
        };
        play(first);
        Interleaving::Scene scene;
        for (const std::string& letters : threads)
            scene.threads.push_back([=] { play(letters); });
        scene.check = [object] { Want(object->IsWhole(), "it is left in another state"); };
        scene.victim = victim;
        return scene;
    };
    int orders = 0;
    EXPECT_NO_THROW(orders = Interleaving::Explore(2, make));
    EXPECT_GT(orders, 100); // a scene without a choice would prove nothing
}

} // namespace

TEST(Interleaving, BinaryLock) {
    ExpectAllOrdersGood<Binary>({"u", "u", "t"});
}

TEST(Interleaving, ReadWriteLock) {
    ExpectAllOrdersGood<Room>({"R", "w", "w"});
    ExpectAllOrdersGood<Room>({"r", "w", "r", "w"});
    for (const std::size_t victim : {0U, 1U}) // a reader or a writer is ended in its sleep, behind a writer
        ExpectAllOrdersGood<Room>({"r", "w", "w", ")"}, "(", victim);
}

TEST(Interleaving, Condition) {
    ExpectAllOrdersGood<Waiters>({"0", "1", "ssl"}, "++");
    ExpectAllOrdersGood<Waiters>({"0", "h", "s"}, "++");
    ExpectAllOrdersGood<Waiters>({"0", "1", "bs"}, "++");
}

TEST(Interleaving, Semaphore) {
    ExpectAllOrdersGood<Counted>({"w", "t", "p"});
    ExpectAllOrdersGood<Counted>({"wp", "wp", "p"}, "", 0);
}

// One unit, and one of two who want it is ended in its sleep, perhaps while it waits for the lock.
TEST(Interleaving, UnitLock) {
    ExpectAllOrdersGood<Units>({"t", "t", "pa"});
    ExpectAllOrdersGood<Units>({"T", "T", "a"}, "", 0);
    ExpectAllOrdersGood<Units>({"T", "T", "p", "l"}, "", 0);
}
