#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "toolkit/qzthread.h"

/// A thread with this body; ended by force with the object, if it still runs.
class BodyThread : public Qzc::QzThread {
public:
    explicit BodyThread(std::function<int()> body) : m_body(std::move(body)) {}
    ~BodyThread() override { cancel(); }

protected:
    int run() override { return m_body(); }

private:
    std::function<int()> m_body;
};

/// Counts the times that one has been destroyed.
struct Trace {
    ~Trace() { ++ended; }
    std::atomic<int>& ended;
};

template <class Condition>
bool Eventually(Condition condition) {
    for (int i = 0; i < 20000 && !condition(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return condition();
}

inline void AWhile(int milliseconds = 10) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
