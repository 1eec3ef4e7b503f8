#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <ucontext.h>
#include <vector>

/// Runs a few threads in every order of their steps: one thread of the system plays them all, and between any two
/// atomic steps it may go on with another one. Orders with more than a given number of preemptions are left out; faults
/// that need many are rare. What a step changes is seen by all at once, so it says nothing about memory orders.
class Interleaving {
public:
    struct Scene {
        std::vector<std::function<void()>> threads;
        std::function<void()> check;   ///< throws where the outcome is wrong
        std::size_t victim = SIZE_MAX; ///< this thread may be ended when it sleeps or lowers its shield
    };

    /// The number of orders. Throws a runtime_error, with the order, when one fails or leaves threads asleep for ever.
    static int Explore(int preemptions, const std::function<Scene()>& make) {
        Interleaving all;
        int count = 0;
        do {
            all.Play(preemptions, make());
            ++count;
        } while (all.NextOrder());
        return count;
    }

    /// A place where another thread may come in. Outside Explore it is nothing.
    static void Step() {
        if (s_current != nullptr && !s_current->m_isEnding)
            s_current->GoOn(s_current->Running().context);
    }
    /// A place where the victim may be ended, too.
    static void EndingStep() {
        if (s_current == nullptr || s_current->m_isEnding)
            return;
        Thread& self = s_current->Running();
        self.mayEnd = true;
        s_current->GoOn(self.context);
        self.mayEnd = false;
    }
    /// How many times only the end of a timed sleep let the last scene go on.
    static int Rescues() { return s_rescues; }
    static std::size_t Self() { return s_current != nullptr ? s_current->m_running : SIZE_MAX; }

    /// False when the time was up, which may be at any moment where the wait is timed.
    static bool Sleep(const void* word, std::uint32_t expected, bool timed) {
        Step();
        if (s_current == nullptr)
            return !timed;
        if (*static_cast<const std::uint32_t*>(word) != expected)
            return true;
        Thread& self = s_current->Running();
        self.word = self.lastWord = word;
        self.timed = timed;
        EndingStep();
        const bool inTime = self.word == nullptr;
        self.word = nullptr;
        return inTime;
    }
    static void Wake(const void* word, bool all) {
        Step();
        if (s_current != nullptr)
            s_current->WakeSleepers(word, all);
    }
    static void SetLastAct(std::function<void()> act) {
        if (s_current != nullptr)
            s_current->Running().lastAct = std::move(act);
    }

private:
    struct Thread {
        ucontext_t context = {};
        std::function<void()> body;
        bool done = false;
        bool timed = false;
        bool mayEnd = false;
        const void* word = nullptr; ///< asleep on it
        const void* lastWord = nullptr;
        std::function<void()> lastAct;

        bool IsReady() const { return !done && word == nullptr; }
    };
    struct Choice {
        std::size_t choice;
        std::size_t count;
    };
    static constexpr std::size_t StackSize = 64 * 1024;

    void Play(int preemptions, Scene scene) {
        m_depth = 0;
        m_left = preemptions;
        s_rescues = 0;
        m_error.clear();
        m_victim = scene.victim;
        m_threads = std::vector<Thread>(scene.threads.size());
        for (std::size_t i = 0; i < m_threads.size(); ++i) {
            Thread& thread = m_threads[i];
            thread.body = std::move(scene.threads[i]);
            if (m_stacks.size() == i)
                m_stacks.emplace_back(new char[StackSize]);
            getcontext(&thread.context);
            thread.context.uc_stack.ss_sp = m_stacks[i].get();
            thread.context.uc_stack.ss_size = StackSize;
            makecontext(&thread.context, Enter, 0);
        }
        s_current = this;
        m_running = SIZE_MAX;
        GoOn(m_end);
        s_current = nullptr;
        for (const Thread& thread : m_threads) {
            if (m_error.empty() && !thread.done)
                m_error = "a thread sleeps for ever";
        }
        if (m_error.empty())
            Guard(scene.check);
        if (m_error.empty())
            return;
        for (std::size_t i = 0; i < m_depth; ++i)
            m_error += (i == 0 ? "; order " : " ") + std::to_string(m_path[i].choice);
        throw std::runtime_error(m_error);
    }

    static void Enter() {
        Interleaving& all = *s_current;
        all.Guard(all.Running().body);
        all.Running().done = true;
        all.GoOn(all.Running().context);
    }
    void Guard(const std::function<void()>& body) {
        try {
            body();
        } catch (const std::exception& error) {
            m_error = error.what();
        }
    }
    Thread& Running() { return m_threads[m_running]; }

    /// Goes on with the next thread, or ends the play: `from` is what runs now.
    void GoOn(ucontext_t& from) {
        while (m_error.empty()) {
            // In the order of choice: to go on; then, as preemptions, the others, a time-out, the end of the victim.
            m_next.clear();
            const bool goesOn = m_running < m_threads.size() && Running().IsReady();
            if (goesOn)
                m_next.push_back(m_running);
            for (std::size_t i = 0; i < m_threads.size(); ++i) {
                if (i != m_running && m_threads[i].IsReady())
                    m_next.push_back(i);
            }
            const std::size_t unforced = goesOn ? 1 : m_next.size(); // nothing has to be interrupted for these
            for (std::size_t i = 0; i < m_threads.size(); ++i) {
                if (!m_threads[i].done && m_threads[i].word != nullptr && m_threads[i].timed)
                    m_next.push_back(i);
            }
            const bool mayEnd = m_victim < m_threads.size() && !m_threads[m_victim].done && m_threads[m_victim].mayEnd;
            const std::size_t count = m_next.size() + (mayEnd ? 1 : 0);
            if (count == 0)
                break;
            const std::size_t choice = Choose(m_left == 0 && unforced != 0 ? unforced : count);
            if (unforced == 0)
                ++s_rescues;
            else if (choice >= unforced)
                --m_left;
            if (choice == m_next.size()) {
                End(m_threads[m_victim]);
                continue;
            }
            m_running = m_next[choice];
            if (&Running().context != &from)
                swapcontext(&from, &Running().context);
            return;
        }
        swapcontext(&from, &m_end);
    }

    /// As a thread goes that is ended by force: its last act, and its wake goes to another one. All of it is one step.
    void End(Thread& victim) {
        m_victim = SIZE_MAX;
        victim.done = true;
        m_isEnding = true;
        if (victim.lastAct)
            victim.lastAct();
        m_isEnding = false;
        WakeSleepers(victim.lastWord, false);
    }
    void WakeSleepers(const void* word, bool all) {
        std::vector<Thread*> sleepers;
        for (Thread& thread : m_threads) {
            if (!thread.done && thread.word == word)
                sleepers.push_back(&thread);
        }
        if (!all && !sleepers.empty())
            sleepers = {sleepers[Choose(sleepers.size())]};
        for (Thread* thread : sleepers)
            thread->word = nullptr;
    }

    std::size_t Choose(std::size_t count) {
        if (m_depth == m_path.size())
            m_path.push_back({0, count});
        if (m_path[m_depth].count != count)
            throw std::logic_error("the same order gave another course");
        return m_path[m_depth++].choice;
    }
    bool NextOrder() {
        while (!m_path.empty() && m_path.back().choice + 1 == m_path.back().count)
            m_path.pop_back();
        if (m_path.empty())
            return false;
        ++m_path.back().choice;
        return true;
    }

    inline static Interleaving* s_current = nullptr;
    inline static int s_rescues = 0;
    std::vector<Thread> m_threads;
    std::vector<std::unique_ptr<char[]>> m_stacks;
    std::vector<Choice> m_path;
    std::vector<std::size_t> m_next;
    std::size_t m_victim = SIZE_MAX;
    bool m_isEnding = false;
    std::size_t m_depth = 0;
    std::size_t m_running = SIZE_MAX;
    int m_left = 0;
    std::string m_error;
    ucontext_t m_end = {};
};
