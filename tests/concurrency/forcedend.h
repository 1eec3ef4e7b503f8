#pragma once

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "concurrency/bodythread.h"
#include "platform/sanitizer.h"
#include "support.h"
#include "toolkit/qzprocess.h"
#include "toolkit/qzstringw.h"
#include "toolkit/qztextcodec.h"
#include "toolkit/qzthreadmanager.h"

// What threads do when they are ended by force, and how they are ended.

using Body = std::function<void()>;

inline void UseTheRegistry() {
    Qzc::QzThreadManager& manager = Qzc::QzThreadManager::GetInstance();
    manager.GetThread("x");
    manager.CreateThread(
        "x", [](void*) { return 0; }, nullptr, 0);
    manager.DestoryThread("x");
}

/// Opens many converters and converts to and fro.
inline void Convert() {
    for (const int number : {134, 136, 128, 129, 54936, 951, 161, 204, 238, 178, 28592, 28605, 20866, 50220, 70013}) {
        const auto charset = static_cast<KELD::KELDCharset::Charset>(number);
        Qzc::QzTextCodec codec(KELD::KELDCharset::UTF8, charset); // by the converter itself, not by copying
        if (!PosixFiles && !codec.IsOpen())
            continue; // the other system's converter lacks some of them
        Qzc::QzStringW text(L"abc 123");
        text.FromString(text.ToString(charset), charset);
        Qzc::KeldMBString utf8;
        if (!(text == L"abc 123") || !codec.Convert(utf8, "a~") || utf8.GetAt(0) != 'a')
            std::abort();
    }
}

inline void UseForkHooks() {
    Qzc::QzProcess lock; // tells the library to look after it in a fork
}

inline void UseTheHeap() {
    static std::atomic<void*> s_memory;
    for (std::size_t size = 1; size < 200000; size = size * 3 + 11) {
        std::free(s_memory.exchange(std::malloc(size)));
        for (volatile int work = 0; work < 300; work = work + 1) { // the place to be stopped at
        }
    }
}

/// What all threads share, in the library and below it.
inline std::vector<Body> SharedWorks() {
    std::vector<Body> works = {UseForkHooks, UseTheRegistry, Convert};
    if (!UNDER_ADDRESS_SANITIZER && !UNDER_THREAD_SANITIZER) // whose own heap stands in the place of the system's
        works.emplace_back(UseTheHeap);
    return works;
}

/// Ends threads that do it again and again, at places that nobody chose. Neither unwinding nor the process notices: the
/// next thread does it too. A hang is the fault.
inline void EndAmid(const Body& work, const Body& after) {
    std::atomic<int> steps{0}, unwound{0};
    for (int round = 0; round < Often(100); ++round) {
        std::atomic<bool> runs{false};
        BodyThread victim([&] {
            const Trace trace{unwound};
            try {
                for (runs = true;; ++steps)
                    work();
            } catch (...) { // goes on to the step
            }
            return ++steps;
        });
        ASSERT_TRUE(victim.start(0));
        while (!runs)
            Qzc::QzThread::yield();
        const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(round * round * 7 % 1999);
        while (std::chrono::steady_clock::now() < until) {
        }
        ASSERT_TRUE(victim.cancel());
        ASSERT_FALSE(victim.running() || victim.cancel());
        const int before = steps;
        Together(after);
        ASSERT_EQ(steps, before);
    }
    EXPECT_EQ(unwound, 0);
}
