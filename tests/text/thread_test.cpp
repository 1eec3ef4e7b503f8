#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "support.h"
#include "toolkit/qzstringw.h"
#include "toolkit/qztextcodec.h"
#include "toolkit/qzthread.h"

using namespace Qzc;

// Threads that are ended by force leave their converters allocated, which is no fault of theirs.
extern "C" const char* __asan_default_options();
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "detect_leaks=0";
}

namespace {

constexpr int Charsets[] = {134, 136, 128, 129, 54936, 951, 161, 204, 238, 178, 28592, 28605, 20866, 50220, 70013, 437};

// Every charset of the list, opened anew and converted to and fro; whether each gave what it should.
bool ConvertAll() {
    bool good = true;
    for (const int number : Charsets) {
        const auto charset = static_cast<KELDCharset::Charset>(number);
        QzStringW text(L"abc 123");
        text.FromString(text.ToString(charset), charset);
        good = good && text == L"abc 123";
        QzTextCodec codec(KELDCharset::UTF8, charset); // by the converter itself, not by copying
        KeldMBString utf8;
        good = good && codec.Convert(utf8, "a~") && utf8.GetAt(0) == 'a';
    }
    return good;
}

class ConvertingThread : public QzThread {
public:
    std::atomic<int> rounds{0};

protected:
    int run() override {
        for (;;) {
            ConvertAll(); // the first time it opens all of them, where the system's locks are
            ++rounds;
        }
    }
};

} // namespace

// Whoever comes after a thread that was ended anywhere in a conversion finds nothing locked and nothing half done.
TEST(TextThreads, OneEndedByForceLeavesTheOthersWhole) {
    for (int round = 0; round < 40; ++round) {
        ConvertingThread thread;
        ASSERT_TRUE(thread.start(0));
        while (thread.rounds == 0 && round % 2 == 0)
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::microseconds(round * 97 % 1500));
        thread.cancel();
        bool good = false;
        std::thread([&] { good = ConvertAll(); }).join();
        ASSERT_TRUE(good) << round;
    }
}

TEST(TextThreads, ACodecMayPassFromThreadToThread) {
    QzTextCodec codec;
    std::thread([&] { codec.Open(KELDCharset::GB2312, KELDCharset::UTF8); }).join();
    for (int round = 0; round < 3; ++round) {
        std::thread([&] {
            KeldMBString text;
            EXPECT_TRUE(codec.Convert(text, "\xE4\xB8\xAD"));
            EXPECT_EQ(text, "\xD6\xD0");
            codec.Open(KELDCharset::GB2312, KELDCharset::UTF8);
        }).join();
    }
    Together([] { EXPECT_TRUE(ConvertAll()); }, [] { EXPECT_TRUE(ConvertAll()); });
}

#if !defined(__SANITIZE_THREAD__) // which cannot follow a process of many threads into its child
// The child has one thread; whatever the others were about, it can open and convert.
TEST(TextThreads, AChildOfAForkConverts) {
    std::atomic<bool> toEnd{false};
    const auto convert = [&] {
        while (!toEnd)
            std::thread(ConvertAll).join();
    };
    std::thread threads[] = {std::thread(convert), std::thread(convert)};
    int failed = 0;
    for (int round = 0; round < 60; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20); // one that hangs fails
            _exit(ConvertAll() ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        failed += status != 0;
    }
    toEnd = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failed, 0);
}
#endif
