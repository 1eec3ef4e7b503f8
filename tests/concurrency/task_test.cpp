#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>
#include <new>
#include <random>
#include <utility>
#include <vector>

#include "concurrency/bodythread.h"
#include "support.h"
#include "toolkit/qztaskmanager.h"
#include "toolkit/qztaskmessageloop.h"

using namespace Qzc;

namespace {

struct Unrelated {
    virtual ~Unrelated() = default;
    long m_padding[5] = {};
};

/// Bigger than the base, perhaps aligned beyond malloc's promise, and not at the start of its object: what giving it
/// back must not depend on. One in ten throws.
template <std::size_t Alignment>
class alignas(Alignment) TaskAt final : public Unrelated, public QzTaskBase {
public:
    explicit TaskAt(int number, std::atomic<int>* executed = nullptr) : m_number(number), m_executed(executed) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(this) % Alignment, 0u);
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

using Task = TaskAt<16>;
using Log = std::vector<int>;

struct Processor : QzTaskProcessor {
    bool Process(QzTaskBase* task) override {
        processed.push_back(task->GetTaskType());
        return processed.size() % 2 == 0 ? throw 5 : false;
    }
    Log processed;
};

/// Whether a filter vetoes this event of a task. Otherwise it may throw.
bool Vetoes(int event, int task) {
    return (task * 7 + event * 3) % 32 == 0;
}

struct Sieve : QzTaskFilter {
    explicit Sieve(Loop& owner) : loop(owner) {}
    unsigned char Filter(int event, QzTaskBase* task, bool& cancel) override {
        EXPECT_GE(loop.GetTaskCount(), 0); // the lock is this thread's already
        calls.push_back(event);
        cancel = Vetoes(event, task->GetTaskType());
        return task->GetTaskType() % 7 == 0 && !cancel ? throw event : 1;
    }
    Loop& loop;
    Log calls;
};

/// What a loop does, in one thread.
struct Model {
    std::deque<std::pair<QzTaskBase*, int>> tasks;
    int units = 0;
    bool hasFilter = false;
    bool hasProcessor = false;
    int executed = 0;
    Log calls, processed;

    bool IsVetoed(int event, int task) {
        if (hasFilter)
            calls.push_back(event);
        return hasFilter && Vetoes(event, task);
    }
    /// Whether the task is queued.
    bool Add(QzTaskBase* task, int number, bool toTail, std::size_t limit) {
        if (IsVetoed(1, number))
            return false;
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
        if (IsVetoed(2, number))
            return false;
        if (hasProcessor)
            processed.push_back(number);
        else
            ++executed;
        return true;
    }
};

} // namespace

// A random sequence of operations beside the model, through filters and a processor that come and go.
TEST(TaskLoop, BehavesAsADequeWithUnits) {
    Loop loop;
    Model model;
    std::atomic<int> executed{0};
    Sieve filter(loop);
    Processor processor;
    std::mt19937 random(7);
    ASSERT_FALSE(loop.AddTask(nullptr, true) || loop.RemoveTaskFilter(&filter) || loop.RemoveTaskProcessor(&processor));
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
                ASSERT_TRUE((model.hasFilter = !model.hasFilter) ? loop.AddTaskFilter(&filter)
                                                                 : loop.RemoveTaskFilter(&filter));
            else
                ASSERT_TRUE((model.hasProcessor = !model.hasProcessor) ? loop.AddTaskProcessor(&processor)
                                                                       : loop.RemoveTaskProcessor(&processor));
            break;
        case 2: {
            Task absent(0);
            QzTaskBase* some = &absent;
            const bool isThere = !model.tasks.empty() && random() % 2 == 0;
            if (isThere) {
                const auto place = model.tasks.begin() + static_cast<int>(random() % model.tasks.size());
                some = place->first;
                model.tasks.erase(place);
                model.units = std::max(model.units - 1, 0);
            }
            ASSERT_EQ(loop.RemoveTask(some), isThere || !model.tasks.empty()); // true all the same
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
            QzTaskBase* task = new (std::nothrow) Task(step, &executed);
            if (step % 2 == 0) // as the loop gives one back
                QzTaskBase::Release(std::exchange(task, new TaskAt<64>(step, &executed)));
            const bool queued = model.Add(task, step, toTail, static_cast<std::size_t>(loop.GetTaskQueueSize()));
            ASSERT_TRUE(loop.AddTask(task, toTail)); // so say the filters
            if (!queued)                             // still the caller's
                QzTaskBase::Release(task);
        }
        }
        ASSERT_EQ(loop.GetTaskCount(), static_cast<int>(model.tasks.size()));
    }
    EXPECT_EQ(filter.calls, model.calls);
    EXPECT_EQ(processor.processed, model.processed);
    EXPECT_EQ(executed, model.executed);
    for (; model.units > 0; --model.units) // one too few hangs
        QzTaskBase::Release(loop.GetTask());
    loop.RemoveTaskFilter(&filter);
    QzTaskBase* waitedFor = nullptr;
    Together([&] { waitedFor = loop.GetTask(); }, // one too many finds nothing
             [&] {
                 AWhile();
                 loop.AddTask(new Task(0), true);
             });
    EXPECT_NE(waitedFor, nullptr);
    QzTaskBase::Release(waitedFor);
    loop.AddTask(new Task(1), true); // left to the destructor
}

TEST(TaskManager, WorksThroughTheQueue) {
    QzTaskManager manager;
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
    Processor processor;
    manager.GetMessageLoop().AddTaskProcessor(&processor);
    manager.SetThreadCount(1);
    EXPECT_TRUE(manager.Start());
    EXPECT_TRUE(Eventually([&] { return manager.GetMessageLoop().IsTaskEmpty(); }));
    manager.Stop();
    EXPECT_EQ(processor.processed, (Log{4, 0, 1, 2, 3}));
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
    ASSERT_TRUE(manager.Start());
    for (int i = 0; i < Workers + 5; ++i)
        manager.PostTask(new Task(i), true);
    EXPECT_TRUE(Eventually([&] { return slow.started == Workers; }));
    manager.Stop();
    EXPECT_EQ(slow.finished, Workers); // the other tasks are dropped
}
