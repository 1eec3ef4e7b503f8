#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <ucontext.h>
#include <utility>
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

    /// The number of orders. Throws a runtime_error when one fails or leaves threads asleep for ever.
    static int Explore(int preemptions, const std::function<Scene()>& make) {
        int count = 0;
        for (s_path.clear(); count == 0 || NextOrder(); ++count)
            Play(preemptions, make());
        return count;
    }

    /// A place where another thread may come in, and where the victim may be ended. Outside Explore it is nothing.
    static void Step(bool mayEnd = false) {
        if (!s_isPlaying || s_isEnding)
            return;
        Running().mayEnd = mayEnd;
        GoOn(Running().context);
        Running().mayEnd = false;
    }
    /// How many times only the end of a timed sleep let the last scene go on.
    static int Rescues() { return s_rescues; }
    static std::size_t Self() { return s_isPlaying ? s_running : SIZE_MAX; }

    /// False when the time was up, which may be at any moment where the wait is timed.
    static bool Sleep(const void* word, std::uint32_t expected, bool timed) {
        Step();
        if (!s_isPlaying || *static_cast<const std::uint32_t*>(word) != expected)
            return s_isPlaying || !timed;
        Thread& self = Running();
        self.word = self.lastWord = word;
        self.timed = timed;
        Step(true);
        const bool inTime = self.word == nullptr;
        self.word = nullptr;
        return inTime;
    }
    static void Wake(const void* word, bool all) {
        Step();
        if (s_isPlaying)
            WakeSleepers(word, all);
    }
    static void SetLastAct(std::function<void()> act) {
        if (s_isPlaying)
            Running().lastAct = std::move(act);
    }

private:
    static constexpr std::size_t StackSize = 64 * 1024;
    struct Thread {
        ucontext_t context = {};
        std::unique_ptr<char[]> stack{new char[StackSize]};
        std::function<void()> body;
        bool done = false;
        bool timed = false;
        bool mayEnd = false;
        const void* word = nullptr; ///< asleep on it
        const void* lastWord = nullptr;
        std::function<void()> lastAct;

        bool IsReady() const { return !done && word == nullptr; }
    };

    static void Play(int preemptions, Scene scene) {
        s_depth = 0;
        s_left = preemptions;
        s_rescues = 0;
        s_error.clear();
        s_victim = scene.victim;
        s_threads = std::vector<Thread>(scene.threads.size());
        for (std::size_t i = 0; i < s_threads.size(); ++i) {
            Thread& thread = s_threads[i];
            thread.body = std::move(scene.threads[i]);
            getcontext(&thread.context);
            thread.context.uc_stack.ss_sp = thread.stack.get();
            thread.context.uc_stack.ss_size = StackSize;
            makecontext(&thread.context, Enter, 0);
        }
        s_running = SIZE_MAX;
        s_isPlaying = true;
        GoOn(s_end);
        s_isPlaying = false;
        for (const Thread& thread : s_threads) {
            if (s_error.empty() && !thread.done)
                s_error = "a thread sleeps for ever";
        }
        if (s_error.empty())
            Guard(scene.check);
        if (!s_error.empty())
            throw std::runtime_error(s_error);
    }

    static void Enter() {
        Guard(Running().body);
        Running().done = true;
        GoOn(Running().context);
    }
    static void Guard(const std::function<void()>& body) {
        try {
            body();
        } catch (const std::exception& error) {
            s_error = error.what();
        }
    }
    static Thread& Running() { return s_threads[s_running]; }

    /// Goes on with the next thread, or ends the play: `from` is what runs now.
    static void GoOn(ucontext_t& from) {
        while (s_error.empty()) {
            // In the order of choice: to go on; then, as preemptions, the others, a time-out, the end of the victim.
            s_next.clear();
            const bool goesOn = s_running < s_threads.size() && Running().IsReady();
            if (goesOn)
                s_next.push_back(s_running);
            for (std::size_t i = 0; i < s_threads.size(); ++i) {
                if (i != s_running && s_threads[i].IsReady())
                    s_next.push_back(i);
            }
            const std::size_t unforced = goesOn ? 1 : s_next.size(); // nothing has to be interrupted for these
            for (std::size_t i = 0; i < s_threads.size(); ++i) {
                if (!s_threads[i].done && s_threads[i].word != nullptr && s_threads[i].timed)
                    s_next.push_back(i);
            }
            const bool mayEnd = s_victim < s_threads.size() && !s_threads[s_victim].done && s_threads[s_victim].mayEnd;
            const std::size_t count = s_next.size() + (mayEnd ? 1 : 0);
            if (count == 0)
                break;
            const std::size_t choice = Choose(s_left == 0 && unforced != 0 ? unforced : count);
            if (unforced == 0)
                ++s_rescues;
            else if (choice >= unforced)
                --s_left;
            if (choice == s_next.size()) {
                End(s_threads[s_victim]);
                continue;
            }
            s_running = s_next[choice];
            if (&Running().context != &from)
                swapcontext(&from, &Running().context);
            return;
        }
        swapcontext(&from, &s_end);
    }

    /// As a thread goes that is ended by force: its last act, and its wake goes to another one. All of it is one step.
    static void End(Thread& victim) {
        s_victim = SIZE_MAX;
        victim.done = true;
        s_isEnding = true;
        if (victim.lastAct)
            victim.lastAct();
        s_isEnding = false;
        WakeSleepers(victim.lastWord, false);
    }
    static void WakeSleepers(const void* word, bool all) {
        std::vector<Thread*> sleepers;
        for (Thread& thread : s_threads) {
            if (!thread.done && thread.word == word)
                sleepers.push_back(&thread);
        }
        if (!all && !sleepers.empty())
            sleepers = {sleepers[Choose(sleepers.size())]};
        for (Thread* thread : sleepers)
            thread->word = nullptr;
    }

    static std::size_t Choose(std::size_t count) {
        if (s_depth == s_path.size())
            s_path.emplace_back(0, count);
        return s_path[s_depth++].first;
    }
    static bool NextOrder() {
        while (!s_path.empty() && s_path.back().first + 1 == s_path.back().second)
            s_path.pop_back();
        if (s_path.empty())
            return false;
        ++s_path.back().first;
        return true;
    }

    inline static bool s_isPlaying = false;
    inline static bool s_isEnding = false;
    inline static std::vector<Thread> s_threads;
    inline static std::vector<std::pair<std::size_t, std::size_t>> s_path; ///< choices, and of how many
    inline static std::vector<std::size_t> s_next;
    inline static std::size_t s_victim = SIZE_MAX;
    inline static std::size_t s_depth = 0;
    inline static std::size_t s_running = SIZE_MAX;
    inline static int s_left = 0;
    inline static int s_rescues = 0;
    inline static std::string s_error;
    inline static ucontext_t s_end = {};
};
