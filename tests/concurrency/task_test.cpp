#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <new>
#include <random>
#include <thread>
#include <vector>

#include "concurrency/bodythread.h"
#include "support.h"
#include "toolkit/qztaskmanager.h"
#include "toolkit/qztaskmessageloop.h"
#include "toolkit/qztaskworkthread.h"

using namespace Qzc;

namespace {

struct Unrelated {
    virtual ~Unrelated() = default;
    long m_padding[5] = {};
};

/// Bigger than the base, aligned beyond malloc's promise and not at the start of its object: what giving it
/// back must not depend on. One in ten throws.
class alignas(64) Task final : public Unrelated, public QzTaskBase {
public:
    explicit Task(int number, std::atomic<int>* executed = nullptr) : m_number(number), m_executed(executed) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(this) % 64, 0u);
    }
    int GetTaskType() override { return m_number; }
    bool Execute() override {
        if (m_executed != nullptr)
            ++*m_executed;
        return m_number % 10 == 3 ? throw m_number : true;
    }
    void Cancel() override { ADD_FAILURE(); }

private:
    int m_number;
    std::atomic<int>* m_executed;
};

class Loop : public QzTaskMessageLoop {
public:
    using QzTaskMessageLoop::Run;
};

using Log = std::vector<int>;

struct Processor : QzTaskProcessor {
    explicit Processor(Log& log, int self = 0) : processed(log), number(self) {}
    bool Process(QzTaskBase* task) override {
        processed.push_back(task->GetTaskType() * 2 + number);
        return number == 1 ? throw number : false;
    }
    Log& processed;
    int number;
};

/// What one filter does with a task, told by their numbers alone.
struct Verdict {
    Verdict(int filter, int event, int task) {
        const int hash = (task * 7 + filter * 5 + event * 3) % 32;
        vetoes = hash == 0;
        throws = hash == 1;
        result = static_cast<unsigned char>(throws ? 0 : (task + filter) % 3);
    }
    bool vetoes, throws;
    unsigned char result;
};

struct Sieve : QzTaskFilter {
    Sieve(Loop& owner, Log& log, int self) : loop(owner), calls(log), number(self) {}
    unsigned char Filter(int event, QzTaskBase* task, bool& cancel) override {
        EXPECT_FALSE(cancel);
        EXPECT_GE(loop.GetTaskCount(), 0); // the lock is this thread's already
        calls.push_back(event * 10 + number);
        const Verdict verdict(number, event, task->GetTaskType());
        cancel = verdict.vetoes;
        return verdict.throws ? throw number : verdict.result;
    }
    Loop& loop;
    Log& calls;
    int number;
};

/// What a loop does, in one thread.
struct Model {
    std::deque<std::pair<QzTaskBase*, int>> tasks;
    int units = 0;
    int filters = 0;    ///< those with the numbers below
    int processors = 0; ///< likewise
    int executed = 0;
    Log calls, processed;

    bool IsVetoed(int event, int task, bool& result) {
        for (int i = 0; i < filters; ++i) {
            calls.push_back(event * 10 + i);
            const Verdict verdict(i, event, task);
            result = verdict.result != 0;
            if (verdict.vetoes)
                return true;
        }
        return false;
    }
    /// What AddTask returns; whether the task is queued.
    bool Add(QzTaskBase* task, int number, bool toTail, std::size_t limit, bool& queued) {
        bool result = false;
        queued = !IsVetoed(1, number, result);
        if (!queued)
            return result;
        if (tasks.size() < limit)
            ++units;
        else
            toTail ? tasks.pop_front() : tasks.pop_back(); // the oldest, or the newest
        tasks.emplace(toTail ? tasks.end() : tasks.begin(), task, number);
        return true;
    }
    bool Run() {
        --units;
        if (tasks.empty())
            return false;
        const int number = tasks.front().second;
        tasks.pop_front();
        bool ignored = false;
        if (IsVetoed(2, number, ignored))
            return false;
        executed += processors == 0 ? 1 : 0;
        for (int i = 0; i < processors; ++i)
            processed.push_back(number * 2 + i);
        return true;
    }
};

} // namespace

// A random sequence of operations beside the model, through filters and processors that come and go.
TEST(TaskLoop, BehavesAsADequeWithUnits) {
    Loop loop;
    Model model;
    Log calls, processed;
    std::atomic<int> executed{0};
    Sieve filters[] = {{loop, calls, 0}, {loop, calls, 1}};
    Processor processors[] = {Processor(processed, 0), Processor(processed, 1)};
    std::mt19937 random(7);
    ASSERT_FALSE(loop.AddTask(nullptr, true) || loop.RemoveTaskFilter(filters) || loop.RemoveTaskProcessor(processors));
    for (int step = 0; step < 40000; ++step) {
        switch (random() % 8) {
        case 0: {
            const int count = static_cast<int>(random() % 4) - 1;
            loop.PostTask(count);
            model.units += std::max(count, 0);
            break;
        }
        case 1:
            if (random() % 4 == 0)
                loop.SetTaskQueueSize(random() % 4 == 0 ? 200 : 1 + static_cast<int>(random() % 9));
            else if (random() % 2 == 0)
                ASSERT_TRUE(model.filters < 2 ? loop.AddTaskFilter(&filters[model.filters++])
                                              : loop.RemoveTaskFilter(&filters[--model.filters]));
            else
                ASSERT_TRUE(model.processors < 2 ? loop.AddTaskProcessor(&processors[model.processors++])
                                                 : loop.RemoveTaskProcessor(&processors[--model.processors]));
            break;
        case 2: {
            Task absent(0);
            QzTaskBase* some = &absent;
            if (!model.tasks.empty() && random() % 2 == 0) {
                const auto place = model.tasks.begin() + static_cast<int>(random() % model.tasks.size());
                some = place->first;
                model.tasks.erase(place);
                model.units = std::max(model.units - 1, 0);
                ASSERT_TRUE(loop.RemoveTask(some));
            } else {
                ASSERT_EQ(loop.RemoveTask(some), !model.tasks.empty()); // not there, and true all the same
            }
            break;
        }
        case 3:
            if (random() % 20 == 0) {
                const auto count = static_cast<int>(model.tasks.size());
                ASSERT_EQ(loop.RemoveAllTask(), count);
                model.units = std::max(0, model.units - count);
                model.tasks.clear();
            }
            break;
        case 4:
        case 5:
            if (model.units > 0) {
                ASSERT_EQ(loop.Run(), model.Run());
            }
            break;
        default: {
            const bool toTail = random() % 2 == 0;
            auto* task = step % 2 == 0 ? new Task(step, &executed) : new (std::nothrow) Task(step, &executed);
            bool queued = false;
            const bool result =
                model.Add(task, step, toTail, static_cast<std::size_t>(loop.GetTaskQueueSize()), queued);
            ASSERT_EQ(loop.AddTask(task, toTail), result);
            if (!queued) // still the caller's
                delete task;
        }
        }
        ASSERT_EQ(loop.GetTaskCount(), static_cast<int>(model.tasks.size()));
        ASSERT_EQ(loop.IsTaskEmpty(), model.tasks.empty());
    }
    EXPECT_EQ(calls, model.calls);
    EXPECT_EQ(processed, model.processed);
    EXPECT_EQ(executed, model.executed);
    for (; model.units > 0; --model.units) // one too few hangs
        QzTaskBase::Release(loop.GetTask());
    QzTaskBase* waitedFor = nullptr;
    Together([&] { waitedFor = loop.GetTask(); }, // one too many finds nothing
             [&] {
                 AWhile();
                 loop.RemoveTaskFilter(&filters[0]);
                 loop.RemoveTaskFilter(&filters[1]);
                 loop.AddTask(new Task(0), true);
             });
    EXPECT_NE(waitedFor, nullptr);
    QzTaskBase::Release(waitedFor);
    AssertionLog assertions;
    loop.SetTaskQueueSize(0);
    EXPECT_EQ(AssertionLog::Texts(), std::vector<std::string>{"nQueueSize != 0"});
    EXPECT_TRUE(loop.AddTask(new Task(1), true) && loop.AddTask(new Task(2), true)); // left to the destructor
    EXPECT_EQ(loop.GetTaskQueue().GetHead()->GetTaskType() + loop.GetTaskCount(), 3);
}

TEST(TaskManager, WorksThroughTheQueue) {
    QzTaskManager manager;
    {
        AssertionLog assertions;
        EXPECT_EQ(manager.GetThreadCount(), 1);
        EXPECT_EQ(manager.GetMessageLoop().GetTaskQueueSize(), 200);
        manager.SetThreadCount(0);
        EXPECT_EQ(AssertionLog::Texts(), std::vector<std::string>{"nThreadsSize != 0"});
        EXPECT_FALSE(manager.Start());
    }
    manager.SetThreadCount(3);
    for (int run = 0; run < 2; ++run) {
        std::atomic<int> executed{0};
        EXPECT_TRUE(manager.Start());
        for (int i = 0; i < 100; ++i)
            EXPECT_TRUE(manager.PostTask(new Task(i, &executed), i % 2 == 0));
        EXPECT_TRUE(Eventually([&] { return executed == 100; }));
        EXPECT_TRUE(manager.Stop());
    }
    for (int i = 0; i < 5; ++i) // in their order
        manager.PostTask(new Task(i), i < 4);
    Log processed;
    Processor processor(processed);
    manager.GetMessageLoop().AddTaskProcessor(&processor);
    manager.SetThreadCount(1);
    EXPECT_TRUE(manager.Start());
    EXPECT_TRUE(Eventually([&] { return manager.GetMessageLoop().IsTaskEmpty(); }));
    manager.Stop();
    EXPECT_EQ(processed, (Log{8, 0, 2, 4, 6}));
}

// One task at work runs to its end, those behind it are dropped. Every wake-up of the stop ends a worker, whichever of
// them it reaches.
TEST(TaskManager, StopsManyWorkers) {
    struct Slow : QzTaskProcessor {
        bool Process(QzTaskBase*) override {
            ++started;
            std::this_thread::sleep_for(std::chrono::milliseconds(250));
            return ++finished > 0;
        }
        std::atomic<int> started{0}, finished{0};
    };
    constexpr int Workers = 12;
    Slow slow;
    QzTaskManager manager;
    manager.GetMessageLoop().AddTaskProcessor(&slow);
    manager.SetThreadCount(Workers);
    for (const int tasks : {0, Workers + 5}) {
        ASSERT_TRUE(manager.Start());
        for (int i = 0; i < tasks; ++i)
            manager.PostTask(new Task(i), true);
        EXPECT_TRUE(Eventually([&] { return slow.started == std::min(tasks, Workers); }));
        const std::uint64_t start = QzThread::time();
        manager.Stop();
        EXPECT_GE(QzThread::time() - start, 100000000u);
        EXPECT_EQ(slow.finished, std::min(tasks, Workers));
        EXPECT_TRUE(manager.GetMessageLoop().IsTaskEmpty());
    }
}

TEST(TaskWorkThread, StopsAndDetaches) {
    Loop loop;
    QzTaskWorkThread worker;
    worker.StopThread(); // not started: nothing
    EXPECT_TRUE(worker.Attach(&loop) && worker.StartThread());
    worker.StopThread(); // out of its wait for a task
    EXPECT_FALSE(worker.running());
    std::atomic<int> executed{0};
    EXPECT_TRUE(worker.StartThread()); // without the loop
    loop.AddTask(new Task(1, &executed), true);
    AWhile();
    worker.StopThread();
    EXPECT_EQ(executed, 0);
}
