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

#define atomic PlayedAtomic
#define SpinCount RealSpinCount // a second look shows what the tenth would
#include "platform/waitword.h"
#undef SpinCount
namespace Platform {
constexpr int SpinCount = 1;
}
#define RecursiveLock RealRecursiveLock // tells threads apart by the system's; ours below by the played ones
#include "platform/recursivelock.h"
#undef RecursiveLock

namespace Platform {

class RecursiveLock {
public:
    void Lock() {
        if (m_depth != 0 && m_owner == Interleaving::Self()) {
            ++m_depth;
            return;
        }
        m_lock.Lock();
        m_owner = Interleaving::Self();
        m_depth = 1;
    }
    void Unlock() {
        if (--m_depth == 0)
            m_lock.Unlock();
    }

private:
    BinaryLock m_lock;
    std::size_t m_owner = 0;
    int m_depth = 0;
};

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
void LowerShield() {}
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
using Scene = Interleaving::Scene;

namespace {

void Want(bool right, const char* what) {
    if (!right)
        throw std::runtime_error(what);
}

void ExpectAllOrdersGood(int preemptions, const std::function<Scene()>& make) {
    int orders = 0;
    EXPECT_NO_THROW(orders = Interleaving::Explore(preemptions, make));
    EXPECT_GT(orders, 100); // a scene without a choice would prove nothing
    testing::Test::RecordProperty("orders", orders);
    std::printf("%d orders\n", orders);
}

/// Readers and writers, and who is in.
struct Room {
    ReadWriteLock lock;
    int readers = 0;
    int writers = 0;

    void Read() {
        lock.LockRead();
        ++readers;
        Want(writers == 0, "a reader beside a writer");
        Interleaving::Step();
        --readers;
        lock.UnlockRead();
    }
    void Write() {
        lock.LockWrite();
        ++writers;
        Want(writers == 1 && readers == 0, "a writer beside others");
        Interleaving::Step();
        --writers;
        lock.UnlockWrite();
    }
    std::function<void()> IsFree() {
        return [this] { Want(lock.TryLockWrite(), "somebody has left it locked"); };
    }
};

} // namespace

TEST(Interleaving, FindsTheFaultsOfASimpleLock) {
    struct Broken {
        std::PlayedAtomic<std::uint32_t> taken{0};
    };
    const auto scene = [](bool forgetsToWake) {
        return [=] {
            auto lock = std::make_shared<Broken>();
            const auto use = [=] {
                while (lock->taken.exchange(1) != 0)
                    Interleaving::Sleep(&lock->taken, 1, false);
                lock->taken.store(0);
                if (!forgetsToWake)
                    Interleaving::Wake(&lock->taken, false);
            };
            return Scene{{use, use}, [] {}};
        };
    };
    EXPECT_NO_THROW(Interleaving::Explore(3, scene(false)));
    EXPECT_THROW(Interleaving::Explore(3, scene(true)), std::runtime_error);
}

TEST(Interleaving, ReadWriteLock) {
    ExpectAllOrdersGood(2, [] {
        auto room = std::make_shared<Room>();
        return Scene{{[=] { room->Read(); }, [=] { room->Write(); }, [=] { room->Read(); }, [=] { room->Write(); }},
                     room->IsFree()};
    });
}

// A reader or a writer is ended in its sleep, behind a writer.
TEST(Interleaving, ReadWriteLockWithoutOneOfItsWaiters) {
    for (const std::size_t victim : {0U, 1U}) {
        ExpectAllOrdersGood(2, [=] {
            auto room = std::make_shared<Room>();
            room->lock.LockWrite();
            return Scene{{[=] { room->Read(); }, [=] { room->Write(); }, [=] { room->Write(); },
                          [=] { room->lock.UnlockWrite(); }},
                         room->IsFree(),
                         victim};
        });
    }
}

// Two that waited before the signals are both woken, though a third one comes behind the signals, and gives up.
TEST(Interleaving, Condition) {
    ExpectAllOrdersGood(2, [] {
        auto condition = std::make_shared<Condition>();
        const auto first = condition->Enter(), second = condition->Enter();
        return Scene{{[=] { condition->Wait(first, NoTimeout); }, [=] { condition->Wait(second, NoTimeout); },
                      [=] {
                          condition->Signal();
                          condition->Signal();
                          Want(!condition->Wait(condition->Enter(), 1000), "a signal before the wait");
                      }},
                     [] {}};
    });
}

// One unit for two, of whom one may give up or be ended.
TEST(Interleaving, Semaphore) {
    ExpectAllOrdersGood(2, [] {
        auto semaphore = std::make_shared<Semaphore>(0);
        return Scene{{[=] { semaphore->Wait(); },
                      [=] {
                          if (semaphore->TimedWait(1000))
                              semaphore->Post();
                      },
                      [=] { semaphore->Post(); }},
                     [=] { Want(!semaphore->TryWait(), "a unit too many"); }};
    });
    ExpectAllOrdersGood(2, [] {
        auto semaphore = std::make_shared<Semaphore>(0);
        return Scene{{[=] {
                          semaphore->Wait();
                          semaphore->Post();
                      },
                      [=] { semaphore->Wait(), semaphore->Post(); }, [=] { semaphore->Post(); }},
                     [=] { Want(semaphore->TryWait(), "the unit is gone"); },
                     0};
    });
}

TEST(Interleaving, UnitLock) {
    const auto take = [](UnitLock& units) {
        units.LockWithUnit();
        units.Unlock();
    };
    const auto add = [](UnitLock& units) {
        units.Lock();
        units.AddUnit();
        units.Unlock();
    };
    ExpectAllOrdersGood(2, [=] {
        auto units = std::make_shared<UnitLock>();
        return Scene{{[=] { take(*units); }, [=] { take(*units); },
                      [=] {
                          units->Post(1);
                          add(*units);
                      }},
                     [] {}};
    });
    ExpectAllOrdersGood(2, [=] { // two that give
        auto units = std::make_shared<UnitLock>();
        return Scene{{[=] { take(*units); }, [=] { take(*units); }, [=] { add(*units); }, [=] { units->Post(1); }},
                     [] {}};
    });
    ExpectAllOrdersGood(2, [=] { // one unit, and one of two who want it is ended in its sleep
        auto units = std::make_shared<UnitLock>();
        const auto passOn = [=] {
            units->LockWithUnit();
            units->AddUnit();
            units->Unlock();
        };
        return Scene{{passOn, passOn, [=] { add(*units); }}, [] {}, 0};
    });
}
