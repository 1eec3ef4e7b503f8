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
        std::size_t victim = SIZE_MAX; ///< this thread may be ended whenever it sleeps
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
            s_current->Leave();
    }
    static std::size_t Self() { return s_current->m_running; }

    /// False when the time was up, which may be at any moment where the wait is timed.
    static bool Sleep(const void* word, std::uint32_t expected, bool timed) {
        Step();
        if (s_current == nullptr)
            return !timed;
        if (*static_cast<const std::uint32_t*>(word) != expected)
            return true;
        Thread& self = s_current->m_threads[s_current->m_running];
        self.word = self.lastWord = word;
        self.timed = timed;
        self.inSleep = true;
        s_current->Leave();
        self.inSleep = false;
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
            s_current->m_threads[s_current->m_running].lastAct = std::move(act);
    }

private:
    struct Thread {
        ucontext_t context = {};
        std::function<void()> body;
        bool done = false;
        bool timed = false;
        bool inSleep = false;
        const void* word = nullptr; ///< asleep on it
        const void* lastWord = nullptr;
        std::function<void()> lastAct;
    };

    static constexpr std::size_t StackSize = 64 * 1024;

    void Play(int preemptions, Scene scene) {
        m_depth = 0;
        m_left = preemptions;
        m_error.clear();
        m_threads.clear();
        m_threads.resize(scene.threads.size());
        for (std::size_t i = 0; i < m_threads.size(); ++i) {
            Thread& thread = m_threads[i];
            thread.body = std::move(scene.threads[i]);
            if (m_stacks.size() == i)
                m_stacks.emplace_back(new char[StackSize]);
            getcontext(&thread.context);
            thread.context.uc_stack.ss_sp = m_stacks[i].get();
            thread.context.uc_stack.ss_size = StackSize;
            thread.context.uc_link = &m_scheduler;
            makecontext(&thread.context, Enter, 0);
        }
        s_current = this;
        bool victimLives = scene.victim < m_threads.size();
        m_running = SIZE_MAX;
        while (m_error.empty()) {
            // In the order of choice: to go on; then, as preemptions, the others, a time-out, the end of the victim.
            std::vector<std::function<void()>> choices;
            const bool goesOn = m_running != SIZE_MAX && IsReady(m_threads[m_running]);
            if (goesOn)
                choices.emplace_back([this, same = m_running] { Resume(same); });
            for (std::size_t i = 0; i < m_threads.size(); ++i) {
                if (i != m_running && IsReady(m_threads[i]))
                    choices.emplace_back([this, i] { Resume(i); });
            }
            const std::size_t others = choices.size();
            for (std::size_t i = 0; i < m_threads.size(); ++i) {
                if (!m_threads[i].done && m_threads[i].word != nullptr && m_threads[i].timed)
                    choices.emplace_back([this, i] { Resume(i); });
            }
            if (victimLives && !m_threads[scene.victim].done && m_threads[scene.victim].inSleep)
                choices.emplace_back([&, this] {
                    victimLives = false;
                    End(m_threads[scene.victim]);
                });
            if (choices.empty())
                break;
            const std::size_t unforced = goesOn ? 1 : others; // nothing has to be interrupted for these
            const std::size_t choice = Choose(m_left == 0 && unforced != 0 ? unforced : choices.size());
            if (unforced != 0 && choice >= unforced)
                --m_left;
            choices[choice]();
        }
        for (const Thread& thread : m_threads) {
            if (m_error.empty() && !thread.done)
                m_error = "a thread sleeps for ever";
        }
        s_current = nullptr;
        if (m_error.empty()) {
            try {
                scene.check();
            } catch (const std::exception& error) {
                m_error = error.what();
            }
        }
        if (!m_error.empty()) {
            for (std::size_t i = 0; i < m_depth; ++i)
                m_error += (i == 0 ? "; order " : " ") + std::to_string(m_path[i].choice);
            throw std::runtime_error(m_error);
        }
    }

    static bool IsReady(const Thread& thread) { return !thread.done && thread.word == nullptr; }

    static void Enter() {
        Interleaving& all = *s_current;
        Thread& self = all.m_threads[all.m_running];
        try {
            self.body();
        } catch (const std::exception& error) {
            all.m_error = error.what();
        }
        self.done = true;
    }
    void Resume(std::size_t thread) {
        m_running = thread;
        swapcontext(&m_scheduler, &m_threads[thread].context);
    }
    void Leave() { swapcontext(&m_threads[m_running].context, &m_scheduler); }

    /// As a thread goes that is ended by force: its last act, and its wake goes to another one.
    void End(Thread& victim) {
        victim.done = true;
        m_isEnding = true; // all of it is one step
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
        if (sleepers.empty())
            return;
        if (!all)
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

private:
    struct Choice {
        std::size_t choice;
        std::size_t count;
    };

    inline static Interleaving* s_current = nullptr;
    std::vector<Thread> m_threads;
    std::vector<std::unique_ptr<char[]>> m_stacks;
    std::vector<Choice> m_path;
    bool m_isEnding = false;
    std::size_t m_depth = 0;
    std::size_t m_running = SIZE_MAX;
    int m_left = 0;
    std::string m_error;
    ucontext_t m_scheduler = {};
};
