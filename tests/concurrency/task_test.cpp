#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "base/keldlist.h"
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
/// back must not depend on.
class alignas(64) Task final : public Unrelated, public QzTaskBase {
public:
    explicit Task(int number, std::atomic<int>* executed = nullptr, bool throws = false)
        : m_number(number), m_executed(executed), m_throws(throws) {}

    int GetTaskType() override { return m_number; }
    bool Execute() override {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(dynamic_cast<void*>(this)) % 64, 0u);
        if (m_executed != nullptr)
            ++*m_executed;
        if (m_throws)
            throw m_number;
        return true;
    }
    void Cancel() override { ADD_FAILURE(); }

private:
    int m_number;
    std::atomic<int>* m_executed;
    bool m_throws;
};

class Loop : public QzTaskMessageLoop {
public:
    using QzTaskMessageLoop::Run;

    std::vector<int> Queued() {
        std::vector<int> numbers;
        for (QzTaskBase* task : GetTaskQueue())
            numbers.push_back(task->GetTaskType());
        return numbers;
    }
    /// Takes all tasks; how many. Fewer units than tasks hang it. With more units than tasks the last GetTask
    /// finds an empty queue in place of waiting.
    int Drain() {
        int count = 0;
        for (; !IsTaskEmpty(); ++count)
            QzTaskBase::Release(GetTask());
        QzTaskBase* waitedFor = nullptr;
        Together([&] { waitedFor = GetTask(); },
                 [&] {
                     std::this_thread::sleep_for(std::chrono::milliseconds(2));
                     AddTask(new Task(0), true);
                 });
        EXPECT_NE(waitedFor, nullptr);
        QzTaskBase::Release(waitedFor);
        return count;
    }
};

struct Sieve : public QzTaskFilter {
    unsigned char Filter(int event, QzTaskBase* task, bool& cancel) override {
        return filter(event, task->GetTaskType(), cancel);
    }
    std::function<unsigned char(int, int, bool&)> filter;
};

struct Processor : public QzTaskProcessor {
    bool Process(QzTaskBase* task) override { return process(task->GetTaskType()), false; }
    std::function<void(int)> process;
};

} // namespace

TEST(List, GivesNothingWhenEmpty) {
    AssertionLog assertions;
    KeldList<std::string> list;
    list.AddTail("b");
    list.AddHead("a");
    EXPECT_EQ(list.GetHead() + list.GetTail(), "ab");
    EXPECT_TRUE(list.Remove("a") && list.Remove("b") && !list.Remove("b"));
    EXPECT_TRUE(AssertionLog::Texts().empty());
    EXPECT_EQ(list.RemoveHead() + list.RemoveTail() + list.GetHead() + list.GetTail(), "");
    EXPECT_EQ(AssertionLog::Texts().size(), 4u);
}

TEST(TaskLoop, AFullQueueDropsTheOtherEnd) {
    Loop loop;
    for (const bool toTail : {true, false}) {
        for (int i = 0; i < 200; ++i)
            EXPECT_TRUE(loop.AddTask(new Task(i), true));
        std::vector<int> expected = loop.Queued();
        expected.erase(toTail ? expected.begin() : expected.end() - 1);
        expected.insert(toTail ? expected.end() : expected.begin(), 200);
        EXPECT_TRUE(loop.AddTask(new Task(200), toTail)); // drops the oldest, or the newest
        EXPECT_EQ(loop.Queued(), expected);
        EXPECT_EQ(loop.Drain(), 200);
    }
    AssertionLog assertions;
    loop.SetTaskQueueSize(0);
    EXPECT_EQ(AssertionLog::Texts(), std::vector<std::string>{"nQueueSize != 0"});
    EXPECT_EQ(loop.GetTaskQueueSize(), 0);
    EXPECT_TRUE(loop.AddTask(new Task(1), true) && loop.AddTask(new Task(2), true));
    EXPECT_EQ(loop.Queued(), std::vector<int>{2});
    EXPECT_FALSE(loop.AddTask(nullptr, true));
    EXPECT_EQ(loop.Drain(), 1);
}

TEST(TaskLoop, FiltersVeto) {
    Loop loop;
    std::string calls;
    const auto filter = [&calls](const char* name, int vetoedEvent, int vetoedTask, unsigned char result) {
        Sieve sieve;
        sieve.filter = [=, &calls](int event, int number, bool& cancel) {
            calls += name + std::to_string(event) + " ";
            EXPECT_FALSE(cancel);
            cancel = event == vetoedEvent && number == vetoedTask;
            if (number == 9)
                throw number;
            return result;
        };
        return sieve;
    };
    Sieve a = filter("a", 1, 1, 0), b = filter("b", 1, 2, 7), c = filter("c", 2, 3, 1);
    EXPECT_TRUE(loop.AddTaskFilter(&a) && loop.AddTaskFilter(&b) && loop.AddTaskFilter(&c));
    struct Case {
        int number;
        bool result;
        int queued;
        const char* calls;
    };
    const Case cases[] = {{1, false, 0, "a1 "},
                          {2, true, 0, "a1 b1 "}, // the filter's own result, and yet not queued
                          {3, true, 1, "a1 b1 c1 "},
                          {4, true, 1, "a1 b1 c1 "},
                          {9, true, 1, "a1 b1 c1 "}}; // throwing filters veto nothing
    for (const Case& test : cases) {
        calls.clear();
        auto* task = new Task(test.number);
        EXPECT_EQ(loop.AddTask(task, true), test.result);
        EXPECT_EQ(calls, test.calls);
        EXPECT_EQ(loop.GetTaskCount(), test.queued);
        if (test.queued == 0) {
            delete task; // still the caller's
            continue;
        }
        calls.clear();
        QzTaskBase* taken = loop.GetTask();
        EXPECT_EQ(taken == nullptr, test.number == 3);
        EXPECT_EQ(calls, "a2 b2 c2 ");
        QzTaskBase::Release(taken);
    }
    EXPECT_TRUE(loop.RemoveTaskFilter(&b));
    EXPECT_FALSE(loop.RemoveTaskFilter(&b));
    EXPECT_TRUE(loop.AddTask(new Task(2), true));
}

TEST(TaskLoop, RunsTasksOrProcessors) {
    Loop loop;
    std::atomic<int> executed{0};
    std::string processed;
    loop.PostTask(-1);
    loop.PostTask(1);
    EXPECT_FALSE(loop.Run());
    loop.AddTask(new Task(1, &executed), true);
    loop.AddTask(new Task(2, &executed, true), true);
    EXPECT_TRUE(loop.Run() && loop.Run());
    EXPECT_EQ(executed, 2);

    Processor throwing, plain;
    throwing.process = [&](int number) {
        processed += "t" + std::to_string(number);
        throw std::string("away");
    };
    plain.process = [&](int number) { processed += "p" + std::to_string(number); };
    EXPECT_TRUE(loop.AddTaskProcessor(&throwing) && loop.AddTaskProcessor(&plain));
    loop.AddTask(new Task(3, &executed), true);
    loop.AddTask(new Task(4, &executed), false);
    loop.AddTask(new Task(5, &executed), true);
    EXPECT_TRUE(loop.Run() && loop.Run() && loop.Run());
    EXPECT_EQ(processed, "t4p4t3p3t5p5");
    EXPECT_EQ(executed, 2);
    EXPECT_TRUE(loop.RemoveTaskProcessor(&throwing) && loop.RemoveTaskProcessor(&plain));
    EXPECT_FALSE(loop.RemoveTaskProcessor(&plain));
}

TEST(TaskLoop, RemovesTasks) {
    Loop loop;
    auto* task = new Task(1);
    EXPECT_FALSE(loop.RemoveTask(task));
    EXPECT_EQ(loop.RemoveAllTask(), 0);
    loop.AddTask(new Task(0), true);
    EXPECT_TRUE(loop.RemoveTask(task)); // not there, and true all the same
    EXPECT_EQ(loop.GetTaskCount(), 1);
    loop.AddTask(task, true);
    EXPECT_TRUE(loop.RemoveTask(task));
    EXPECT_EQ(loop.Queued(), std::vector<int>{0});
    loop.AddTask(new Task(2), true);
    EXPECT_EQ(loop.RemoveAllTask(), 2);
    EXPECT_EQ(loop.Drain(), 0);
    loop.AddTask(new Task(3), true); // left to the destructor
}

// A random sequence of operations beside a deque and a count of units.
TEST(TaskLoop, BehavesAsADequeWithUnits) {
    Loop loop;
    std::deque<std::pair<QzTaskBase*, int>> model;
    int units = 0;
    std::size_t limit = 200;
    std::mt19937 random(7);
    for (int step = 0; step < 20000; ++step) {
        switch (random() % 8) {
        case 0: {
            const int count = static_cast<int>(random() % 4) - 1;
            loop.PostTask(count);
            units += std::max(count, 0);
            break;
        }
        case 1:
            limit = 1 + random() % 9;
            loop.SetTaskQueueSize(static_cast<int>(limit));
            break;
        case 2: {
            QzTaskBase* some = model.empty() ? nullptr : model[random() % model.size()].first;
            const auto found =
                std::find_if(model.begin(), model.end(), [&](auto& entry) { return entry.first == some; });
            ASSERT_EQ(loop.RemoveTask(some), !model.empty());
            if (found != model.end()) {
                model.erase(found);
                units -= units > 0 ? 1 : 0;
            }
            break;
        }
        case 3:
            if (random() % 20 == 0) {
                ASSERT_EQ(loop.RemoveAllTask(), static_cast<int>(model.size()));
                units = std::max(0, units - static_cast<int>(model.size()));
                model.clear();
            }
            break;
        case 4:
        case 5:
            if (units > 0) {
                --units;
                QzTaskBase* task = loop.GetTask();
                ASSERT_EQ(task, model.empty() ? nullptr : model.front().first);
                QzTaskBase::Release(task);
                if (!model.empty())
                    model.pop_front();
            }
            break;
        default: {
            const bool toTail = random() % 2 == 0;
            auto* task = step % 2 == 0 ? new Task(step) : new (std::nothrow) Task(step);
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(dynamic_cast<void*>(task)) % 64, 0u);
            ASSERT_TRUE(loop.AddTask(task, toTail));
            if (model.size() < limit)
                ++units;
            else
                toTail ? model.pop_front() : model.pop_back();
            model.emplace(toTail ? model.end() : model.begin(), task, step);
        }
        }
        ASSERT_EQ(loop.GetTaskCount(), static_cast<int>(model.size()));
    }
    const std::vector<int> queued = loop.Queued();
    ASSERT_TRUE(std::equal(queued.begin(), queued.end(), model.begin(), model.end(),
                           [](int number, const auto& entry) { return number == entry.second; }));
}

// All operations at once, from several threads: afterwards there is one unit for each queued task.
TEST(TaskLoop, CountAndQueueStayTogether) {
    for (int round = 0; round < 20; ++round) {
        Loop loop;
        loop.SetTaskQueueSize(20);
        std::atomic<bool> posting{true};
        std::atomic<int> taking{0};
        const auto take = [&] {
            ++taking;
            while (posting)
                loop.Run();
            --taking;
        };
        const auto post = [&] {
            for (int k = 0; k < 600; ++k) {
                auto* task = new Task(k);
                loop.AddTask(task, k % 3 != 0);
                if (k % 4 == 0)
                    loop.RemoveTask(task);
                if (k % 50 == 0)
                    loop.RemoveAllTask();
            }
        };
        Together(take, take, [&] {
            Together(post, post);
            posting = false;
            while (taking > 0) { // each of these units is one null, or one task, for a taker
                loop.AddTask(new Task(-1), true);
                std::this_thread::yield();
            }
        });
        loop.Drain();
    }
}

// A task goes while a thread that has its unit already waits for the queue. The filter keeps it waiting
// there.
TEST(TaskLoop, ALateUnitIsSettled) {
    Loop loop;
    auto* removed = new Task(1);
    loop.AddTask(removed, true);
    std::thread taker;
    Sieve holding;
    holding.filter = [&](int event, int, bool&) {
        if (event == QzTaskFilter::EventAdd) {
            taker = std::thread([&] { loop.Run(); });
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            loop.RemoveTask(removed);
        }
        return 1;
    };
    loop.AddTaskFilter(&holding);
    loop.AddTask(new Task(2), true);
    taker.join();
    loop.RemoveTaskFilter(&holding);
    EXPECT_EQ(loop.Drain(), 0);
}

TEST(TaskManager, WorksThroughTheQueue) {
    QzTaskManager manager;
    {
        AssertionLog assertions;
        EXPECT_EQ(manager.GetThreadCount(), 1);
        manager.SetThreadCount(0);
        EXPECT_EQ(AssertionLog::Texts(), std::vector<std::string>{"nThreadsSize != 0"});
        EXPECT_FALSE(manager.Start());
    }
    manager.SetThreadCount(3);
    for (int run = 0; run < 2; ++run) {
        std::atomic<int> executed{0};
        EXPECT_TRUE(manager.Start());
        for (int i = 0; i < 100; ++i)
            EXPECT_TRUE(manager.PostTask(new Task(i, &executed, i % 10 == 0), i % 2 == 0));
        for (int i = 0; i < 20000 && executed < 100; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_EQ(executed, 100);
        EXPECT_TRUE(manager.Stop());
    }
    // One task at work runs to its end, those behind it are dropped.
    std::atomic<int> finished{0};
    std::atomic<bool> working{false};
    Processor slow;
    slow.process = [&](int) {
        working = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
        ++finished;
    };
    manager.GetMessageLoop().AddTaskProcessor(&slow);
    manager.SetThreadCount(1);
    EXPECT_TRUE(manager.Start());
    for (int i = 0; i < 5; ++i)
        manager.PostTask(new Task(i), true);
    while (!working)
        std::this_thread::yield();
    manager.Stop();
    EXPECT_EQ(finished, 1);
    EXPECT_TRUE(manager.GetMessageLoop().IsTaskEmpty());
}

// Every wake-up of the stop ends a worker, whichever of them it reaches.
TEST(TaskManager, StopsManyWorkers) {
    QzTaskManager manager;
    manager.SetThreadCount(12);
    ASSERT_TRUE(manager.Start());
    QzThread::sleep(50000000); // all wait for a task
    const std::uint64_t start = QzThread::time();
    manager.Stop();
    EXPECT_GE(QzThread::time() - start, 100000000u);
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
    worker.StopThread();
    EXPECT_EQ(executed, 0);
}
