// The locks in every order of their steps: the platform's own headers, with steps, sleeps and wakes that the test
// plays.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "interleaving.h"

namespace std {

template <class T>
class PlayedAtomic {
public:
    constexpr PlayedAtomic(T value = T()) : m_value(value) {}
    PlayedAtomic(const PlayedAtomic&) = delete;

    T load(memory_order = {}) const { return Interleaving::Step(), m_value; }
    void store(T value, memory_order = {}) { Interleaving::Step(), m_value = value; }
    T exchange(T value, memory_order = {}) {
        return Change([=](T) { return value; });
    }
    T fetch_add(T value, memory_order = {}) {
        return Change([=](T before) { return static_cast<T>(before + value); });
    }
    T fetch_sub(T value, memory_order = {}) {
        return Change([=](T before) { return static_cast<T>(before - value); });
    }
    T fetch_and(T value, memory_order = {}) {
        return Change([=](T before) { return static_cast<T>(before & value); });
    }
    bool compare_exchange_strong(T& expected, T value, memory_order = {}, memory_order = {}) {
        const T before = Change([&](T now) { return now == expected ? value : now; });
        return before == expected || (expected = before, false);
    }
    bool compare_exchange_weak(T& expected, T value, memory_order = {}, memory_order = {}) {
        return compare_exchange_strong(expected, value);
    }

private:
    template <class How>
    T Change(const How& how) {
        Interleaving::Step();
        const T before = m_value;
        m_value = how(before);
        return before;
    }

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

static std::int64_t s_longestWait = 0; ///< the last one
static bool s_isWoken = false;         ///< how a wait ends that nobody plays

void RaiseShield() {}
void LowerShield() {
    Interleaving::EndingStep();
}
bool WaitOnWord(const void* word, std::uint32_t expected, std::int64_t microseconds) {
    s_longestWait = microseconds;
    return Interleaving::Sleep(word, expected, microseconds >= 0) || s_isWoken;
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
using Scene = Interleaving::Scene;

namespace {

void Want(bool right, const char* what) {
    if (!right)
        throw std::runtime_error(what);
}

void ExpectAllOrdersGood(const std::function<Scene()>& make) {
    int orders = 0;
    EXPECT_NO_THROW(orders = Interleaving::Explore(2, make));
    EXPECT_GT(orders, 100); // a scene without a choice would prove nothing
    std::printf("%d orders\n", orders);
}

/// Readers and writers, and who is in.
struct Room {
    ReadWriteLock lock;
    int readers = 0;
    int writers = 0;

    auto Read() {
        return [this] {
            lock.LockRead();
            ++readers;
            Want(writers == 0, "a reader beside a writer");
            Interleaving::Step();
            --readers;
            lock.UnlockRead();
        };
    }
    /// Readers come first: where one reads another one comes in, whoever waits.
    auto ReadTwice() {
        return [this] {
            lock.LockRead();
            ++readers;
            Want(lock.TryLockRead() && writers == 0, "a reader is kept out by a writer that waits");
            lock.UnlockRead();
            --readers;
            lock.UnlockRead();
        };
    }
    auto Write() {
        return [this] {
            lock.LockWrite();
            ++writers;
            Want(writers == 1 && readers == 0, "a writer beside others");
            lock.UnlockRead(); // nobody reads; it takes none away that waits
            Interleaving::Step();
            --writers;
            lock.UnlockWrite();
        };
    }
};

/// Everybody wants a unit and the lock.
struct Units {
    UnitLock units;
    int inside = 0;

    auto Take(bool passesOn = false) {
        return [this, passesOn] {
            units.LockWithUnit();
            Want(++inside == 1, "two with the lock");
            Interleaving::Step();
            --inside;
            if (passesOn)
                units.AddUnit();
            units.Unlock();
        };
    }
    auto Add() {
        return [this] {
            units.Lock();
            units.AddUnit();
            units.Unlock();
        };
    }
    auto Post() {
        return [this] { units.Post(1); };
    }
};

/// Waits already, and goes to sleep.
auto Waiter(Condition& condition) {
    return [&condition, ticket = condition.Enter()] { condition.Wait(ticket, NoTimeout); };
}

/// A scene of these threads around one new object, which lives as long as the scene.
template <class Object>
auto Around(std::vector<std::function<void()>> (*threads)(Object&), bool (*isRight)(Object&) = nullptr,
            std::size_t victim = SIZE_MAX) {
    return [=] {
        auto object = std::make_shared<Object>();
        return Scene{threads(*object),
                     [object, isRight] { Want(isRight == nullptr || isRight(*object), "it is left in another state"); },
                     victim};
    };
}
using Threads = std::vector<std::function<void()>>;

} // namespace

TEST(Interleaving, FindsTheFaultsOfASimpleLock) {
    using Word = std::PlayedAtomic<std::uint32_t>;
    static bool s_forgetsToWake = false;
    static constexpr auto Use = [](Word& word) {
        return [&word] {
            while (word.exchange(1) != 0)
                Interleaving::Sleep(&word, 1, false);
            word.store(0);
            if (!s_forgetsToWake)
                Interleaving::Wake(&word, false);
        };
    };
    const auto scene = Around<Word>([](Word& word) { return Threads{Use(word), Use(word)}; });
    EXPECT_NO_THROW(Interleaving::Explore(3, scene));
    s_forgetsToWake = true;
    EXPECT_THROW(Interleaving::Explore(3, scene), std::runtime_error);
}

TEST(Interleaving, RecursiveLock) {
    struct Twice {
        RecursiveLock lock;
        int inside = 0;
        auto Use() {
            return [this] {
                lock.Lock();
                lock.Lock();
                lock.Unlock();
                Want(++inside == 1, "two with the lock");
                Interleaving::Step();
                --inside;
                lock.Unlock();
            };
        }
    };
    ExpectAllOrdersGood(Around<Twice>(
        [](Twice& twice) {
            return Threads{twice.Use(), twice.Use(), twice.Use()};
        },
        [](Twice& twice) { return twice.lock.TryLock(); }));
}

// It is given back without an atomic step, which may overwrite a mark that a sleeper makes in the midst of that. No
// other wake is lost, and who missed one looks again soon.
TEST(Interleaving, BinaryLockLosesNoOtherWake) {
    struct Given {
        BinaryLock lock;
        int givingBack = 0;
        bool mayMissOne = false;
        auto Use() {
            return [this] {
                for (BinaryLock::Naps naps; !lock.TryLockOrMark(); lock.Sleep(naps))
                    mayMissOne = mayMissOne || givingBack != 0;
                GiveBack();
            };
        }
        void GiveBack() {
            Interleaving::Step();
            ++givingBack;
            lock.Unlock();
            --givingBack;
        }
    };
    ExpectAllOrdersGood(Around<Given>(
        [](Given& given) {
            return Threads{given.Use(), given.Use(), [&given] {
                               if (given.lock.TryLock())
                                   given.GiveBack();
                           }};
        },
        [](Given& given) { return Interleaving::Rescues() == 0 || given.mayMissOne; }));
    BinaryLock::Naps naps;
    for (int i = 0; i < 20; ++i) {
        BinaryLock().Sleep(naps);
        EXPECT_TRUE(s_longestWait > 0 && s_longestWait <= 8000);
    }
    s_isWoken = true;
    BinaryLock().Sleep(naps);
    BinaryLock().Sleep(naps); // the first one after a wake
    EXPECT_EQ(s_longestWait, 1000);
    s_isWoken = false;
}

TEST(Interleaving, ReadWriteLock) {
    const auto isFree = [](Room& room) {
        room.lock.UnlockRead(); // nobody reads: it does nothing
        return room.lock.TryLockWrite();
    };
    ExpectAllOrdersGood(Around<Room>(
        [](Room& room) {
            return Threads{room.ReadTwice(), room.Write(), room.Write()};
        },
        isFree));
    ExpectAllOrdersGood(Around<Room>(
        [](Room& room) {
            return Threads{room.Read(), room.Write(), room.Read(), room.Write()};
        },
        isFree));
    for (const std::size_t victim : {0U, 1U}) // a reader or a writer is ended in its sleep, behind a writer
        ExpectAllOrdersGood(Around<Room>(
            [](Room& room) {
                room.lock.LockWrite();
                return Threads{room.Read(), room.Write(), room.Write(), [&room] { room.lock.UnlockWrite(); }};
            },
            isFree, victim));
}

// Each signal lets one go that waited before it, each broadcast all of them.
TEST(Interleaving, Condition) {
    // Nobody is counted any more, and nobody may go.
    const auto isAsNew = [](Condition& condition) {
        condition.Broadcast();
        condition.Signal();
        const auto first = condition.Enter();
        const auto second = condition.Enter();
        condition.Signal();
        return condition.Wait(second, 0) && !condition.Wait(first, 0);
    };
    // Two that waited before the signals are both woken, though a third one comes behind the signals, and gives up.
    ExpectAllOrdersGood(Around<Condition>(
        [](Condition& condition) {
            return Threads{Waiter(condition), Waiter(condition), [&condition] {
                               condition.Signal();
                               condition.Signal();
                               Want(!condition.Wait(condition.Enter(), 1000), "a signal before the wait");
                           }};
        },
        isAsNew));
    // One gives up, at the moment of the signal or not.
    ExpectAllOrdersGood(Around<Condition>(
        [](Condition& condition) {
            const auto hasty = condition.Enter();
            return Threads{Waiter(condition),
                           [=, &condition] {
                               if (condition.Wait(hasty, 1000))
                                   condition.Signal(); // it was for the other one
                           },
                           [&condition] { condition.Signal(); }};
        },
        isAsNew));
    ExpectAllOrdersGood(Around<Condition>(
        [](Condition& condition) {
            return Threads{Waiter(condition), Waiter(condition), [&condition] {
                               condition.Broadcast();
                               condition.Signal();
                           }};
        },
        isAsNew));
}

// One unit for two, of whom one may give up or be ended.
TEST(Interleaving, Semaphore) {
    struct Zero : Semaphore {
        Zero() : Semaphore(0) {}
    };
    ExpectAllOrdersGood(Around<Zero>(
        [](Zero& semaphore) {
            return Threads{[&] { semaphore.Wait(); },
                           [&] {
                               if (semaphore.TimedWait(1000))
                                   semaphore.Post();
                           },
                           [&] { semaphore.Post(); }};
        },
        [](Zero& semaphore) { return !semaphore.TryWait(); }));
    ExpectAllOrdersGood(Around<Zero>(
        [](Zero& semaphore) {
            const auto passOn = [&] {
                semaphore.Wait();
                semaphore.Post();
            };
            return Threads{passOn, passOn, [&] { semaphore.Post(); }};
        },
        [](Zero& semaphore) { return semaphore.TryWait(); }, 0));
}

TEST(Interleaving, UnitLock) {
    ExpectAllOrdersGood(Around<Units>([](Units& units) {
        return Threads{units.Take(), units.Take(), [&units] {
                           units.Post()();
                           units.Add()();
                       }};
    }));
    // One unit, and one of two who want it is ended in its sleep, perhaps while it waits for the lock.
    ExpectAllOrdersGood(Around<Units>(
        [](Units& units) {
            return Threads{units.Take(true), units.Take(true), units.Add()};
        },
        nullptr, 0));
    ExpectAllOrdersGood(Around<Units>(
        [](Units& units) {
            return Threads{units.Take(true), units.Take(true), units.Post(), [&units] {
                               units.units.Lock();
                               units.units.Unlock();
                           }};
        },
        nullptr, 0));
}
