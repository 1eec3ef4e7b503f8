// Threads, locks and the task loop beside their peers. Every figure comes from runs that take turns, ours and
// the peer's, so that a busy machine troubles both alike; the median counts. The last table gives the ratios,
// below 1 where ours is faster.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <ctime>
#include <functional>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/task_group.h>
#include <semaphore.h>

#include "toolkit/qzcondition.h"
#include "toolkit/qzmutex.h"
#include "toolkit/qzreadwritelock.h"
#include "toolkit/qzsemaphore.h"
#include "toolkit/qztaskmessageloop.h"
#include "toolkit/qzthread.h"

using namespace Qzc;

namespace {

using Clock = std::chrono::steady_clock;

/// The seconds that `threads` threads need for `work`, measured from the moment in which all are there.
template <class Work>
double Seconds(int threads, const Work& work) {
    std::atomic<int> missing{threads};
    std::vector<std::thread> others;
    const auto arrive = [&] {
        --missing;
        while (missing > 0) {
        }
    };
    for (int i = 1; i < threads; ++i)
        others.emplace_back([&] {
            arrive();
            work();
        });
    arrive();
    const auto start = Clock::now();
    work();
    for (std::thread& other : others)
        other.join();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// For one thread its processor time counts, which others on the machine disturb less.
template <class Lock, class Unlock>
double LockingTime(int threads, const Lock& lock, const Unlock& unlock) {
    const auto work = [&] {
        for (int i = 0; i < 200000; ++i) {
            lock();
            unlock();
        }
    };
    if (threads > 1)
        return Seconds(threads, work);
    const std::clock_t start = std::clock();
    work();
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

/// The C library spares a process its atomic steps until it starts its second thread.
void StartAThread() {
    std::thread([] {}).join();
}

double OurMutex() {
    QzMutex mutex(1);
    return LockingTime(
        1, [&] { mutex.lock(); }, [&] { mutex.unlock(); });
}
double StdMutex() {
    std::recursive_mutex mutex;
    return LockingTime(
        1, [&] { mutex.lock(); }, [&] { mutex.unlock(); });
}
double OurReading(int threads) {
    QzReadWriteLock lock;
    return LockingTime(
        threads, [&] { lock.readLock(); }, [&] { lock.readUnlock(); });
}
double StdReading(int threads) {
    std::shared_mutex lock;
    return LockingTime(
        threads, [&] { lock.lock_shared(); }, [&] { lock.unlock_shared(); });
}
double OurSemaphore() {
    QzSemaphore semaphore(1);
    return LockingTime(
        1, [&] { semaphore.Wait(); }, [&] { semaphore.Post(); });
}
double SystemSemaphore() {
    sem_t semaphore;
    sem_init(&semaphore, 0, 1);
    const double time = LockingTime(
        1, [&] { sem_wait(&semaphore); }, [&] { sem_post(&semaphore); });
    sem_destroy(&semaphore);
    return time;
}

constexpr int Turns = 5000;

double OurPingPong() {
    QzMutex mutex(1);
    QzCondition condition;
    int turn = 0;
    std::atomic<int> players{0};
    return Seconds(2, [&] {
        const int player = players++;
        QzMutexLock lock(mutex);
        lock.lock();
        for (int i = 0; i < Turns; ++i) {
            while (turn % 2 != player)
                condition.Wait(mutex);
            ++turn;
            condition.signal();
        }
    });
}
double StdPingPong() {
    std::mutex mutex;
    std::condition_variable condition;
    int turn = 0;
    std::atomic<int> players{0};
    return Seconds(2, [&] {
        const int player = players++;
        std::unique_lock<std::mutex> lock(mutex);
        for (int i = 0; i < Turns; ++i) {
            while (turn % 2 != player)
                condition.wait(lock);
            ++turn;
            condition.notify_one();
        }
    });
}

class EmptyThread : public QzThread {
protected:
    int run() override { return 0; }
};

double OurThreads() {
    return Seconds(1, [] {
        for (int i = 0; i < 1000; ++i) {
            EmptyThread thread;
            thread.start(0);
            thread.join();
        }
    });
}
double StdThreads() {
    return Seconds(1, [] {
        for (int i = 0; i < 1000; ++i)
            std::thread([] {}).join();
    });
}

constexpr int Tasks = 100000;

class EmptyTask final : public QzTaskBase {
public:
    int GetTaskType() override { return 0; }
    bool Execute() override { return true; }
    void Cancel() override {}
};

class WorkedLoop : public QzTaskMessageLoop {
public:
    void Work() {
        while (m_done.fetch_add(1) < Tasks)
            Run();
    }

private:
    std::atomic<int> m_done{0};
};

double OurTasks() {
    WorkedLoop loop;
    loop.SetTaskQueueSize(Tasks);
    std::thread first([&] { loop.Work(); }), second([&] { loop.Work(); });
    const double time = Seconds(1, [&] {
        for (int i = 0; i < Tasks; ++i)
            loop.AddTask(new EmptyTask, true);
        first.join();
        second.join();
    });
    return time;
}
double AsioTasks() {
    boost::asio::thread_pool pool(2);
    return Seconds(1, [&] {
        for (int i = 0; i < Tasks; ++i)
            boost::asio::post(pool, [] {});
        pool.join();
    });
}
double TbbTasks() {
    const oneapi::tbb::global_control limit(oneapi::tbb::global_control::max_allowed_parallelism, 3);
    oneapi::tbb::task_group group;
    return Seconds(1, [&] {
        for (int i = 0; i < Tasks; ++i)
            group.run([] {});
        group.wait();
    });
}

struct Comparison {
    const char* name;
    std::function<double()> ours, peer;
    double aim; ///< 0: none
};

const std::vector<Comparison>& Comparisons() {
    static const std::vector<Comparison> s_comparisons = {
        {"QzMutex, the only thread / std::recursive_mutex", OurMutex, StdMutex, 1.2}, // must come first
        {"QzMutex / std::recursive_mutex",
         [] {
             StartAThread();
             return OurMutex();
         },
         StdMutex, 0.8},
        {"QzReadWriteLock, 1 reader / std::shared_mutex", [] { return OurReading(1); }, [] { return StdReading(1); },
         1.0},
        {"QzReadWriteLock, 2 readers / std::shared_mutex", [] { return OurReading(2); }, [] { return StdReading(2); },
         1.0},
        {"QzSemaphore / sem_t", OurSemaphore, SystemSemaphore, 1.1},
        {"QzCondition ping-pong / std::condition_variable", OurPingPong, StdPingPong, 1.2},
        {"QzThread start and join / std::thread", OurThreads, StdThreads, 1.2},
        {"QzTaskMessageLoop / asio::thread_pool", OurTasks, AsioTasks, 0.5},
        {"QzTaskMessageLoop / tbb::task_group", OurTasks, TbbTasks, 1.0},
    };
    return s_comparisons;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

std::map<std::string, std::pair<double, double>> s_medians;

void Compare(benchmark::State& state, const Comparison& comparison) {
    std::vector<double> ours, peers, ratios;
    while (state.KeepRunning()) {
        ours.push_back(comparison.ours());
        peers.push_back(comparison.peer());
        state.SetIterationTime(ours.back());
        ratios.push_back(ours.back() / peers.back());
    }
    s_medians[comparison.name] = {Median(ours) * 1e3, Median(peers) * 1e3};
    state.counters["ours_ms"] = Median(ours) * 1e3;
    state.counters["peer_ms"] = Median(peers) * 1e3;
    state.counters["ratio"] = Median(ratios);
    state.counters["aim"] = comparison.aim;
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    for (const Comparison& comparison : Comparisons()) {
        benchmark::RegisterBenchmark(comparison.name,
                                     [&comparison](benchmark::State& state) { Compare(state, comparison); })
            ->UseManualTime()
            ->Iterations(31)
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::RunSpecifiedBenchmarks();
    std::printf("\n%-52s %10s %10s %7s %6s\n", "", "ours ms", "peer ms", "ratio", "aim");
    for (const Comparison& comparison : Comparisons()) {
        const auto found = s_medians.find(comparison.name);
        if (found == s_medians.end())
            continue;
        const auto [ours, peer] = found->second;
        std::printf("%-52s %10.3f %10.3f %7.2f %6.1f\n", comparison.name, ours, peer, ours / peer, comparison.aim);
    }
    return 0;
}
