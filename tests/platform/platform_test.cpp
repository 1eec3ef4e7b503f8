// What differs from one Linux to the next: sizes of types, and calls that a system lacks or refuses.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <iconv.h>
#include <limits>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

#include "base/keldtime.h"
#include "platform/sharedfile.h"
#include "platform/sharedmemory.h"
#include "platform/thread.h"
#include "platform/waitword.h"
#include "stream/qzfile.h"
#include "support.h"
#include "toolkit/qztextcodec.h"

using namespace Qzc;

namespace {

std::atomic<bool> s_hasStatx{true};
std::atomic<bool> s_replaces{false};

template <class Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

#pragma GCC visibility push(default) // the libraries are to find these
extern "C" {
int statx(int directory, const char* path, int flags, unsigned int mask, struct statx* status) {
    static const auto s_next = Next<decltype(&statx)>("statx");
    errno = EPERM; // as in a sandbox
    return s_hasStatx ? s_next(directory, path, flags, mask, status) : -1;
}
// A converter that has a sign for what the charset lacks, and counts those.
std::size_t iconv(iconv_t handle, char** in, std::size_t* inLeft, char** out, std::size_t* outLeft) {
    static const auto s_next = Next<decltype(&iconv)>("iconv");
    std::size_t result = s_next(handle, in, inLeft, out, outLeft);
    std::size_t replaced = 0;
    while (s_replaces && result == static_cast<std::size_t>(-1) && errno == EILSEQ && *outLeft > 0) {
        const auto isRest = [&] { return *inLeft > 0 && (static_cast<unsigned char>(**in) & 0xC0) == 0x80; };
        do {
            ++*in;
            --*inLeft;
        } while (isRest());
        *(*out)++ = '*';
        --*outLeft;
        ++replaced;
        result = s_next(handle, in, inLeft, out, outLeft);
    }
    return result == static_cast<std::size_t>(-1) ? result : result + replaced;
}
}
#pragma GCC visibility pop

namespace {

using Clock = std::chrono::steady_clock;

Platform::Thread* Start(Platform::ThreadMain body, void* argument, std::size_t stackSize) {
    Platform::Thread* thread = Platform::NewThread(body, argument, stackSize, Platform::ThreadPriority::Other);
    return Platform::StartThread(*thread) ? thread : nullptr;
}

} // namespace

TEST(Threads, TheLeastStackIsTheSystems) {
    for (const std::size_t size : {std::size_t{1}, std::size_t{65536}}) {
        Platform::Thread* thread = Start([](void*) { return 5; }, nullptr, size);
        ASSERT_NE(thread, nullptr) << size;
        EXPECT_TRUE(Platform::WaitForThread(*thread));
        EXPECT_EQ(Platform::ThreadExitCode(*thread), 5);
        Platform::CloseThread(thread);
    }
}

TEST(Threads, AnEndThatCannotBeSentFails) {
    struct Flags {
        std::atomic<int> running{0};
        std::atomic<bool> stop{false};
    } flags;
    const auto body = [](void* argument) {
        auto& its = *static_cast<Flags*>(argument);
        ++its.running;
        while (!its.stop)
            std::this_thread::yield();
        return 3;
    };
    const auto start = [&](int number) {
        Platform::Thread* thread = Start(body, &flags, 0);
        while (thread != nullptr && flags.running < number)
            std::this_thread::yield();
        return thread;
    };
    Platform::Thread* thread = start(1);
    ASSERT_NE(thread, nullptr);
    rlimit previous = {};
    ASSERT_EQ(getrlimit(RLIMIT_SIGPENDING, &previous), 0);
    const rlimit none = {0, previous.rlim_max};
    if (setrlimit(RLIMIT_SIGPENDING, &none) == 0 && pthread_kill(pthread_self(), SIGRTMIN) == EAGAIN) {
        const std::int64_t started = KELD::KeldTime::GetMilliseconds();
        EXPECT_FALSE(Platform::TerminateThread(*thread, 9));
        EXPECT_GE(KELD::KeldTime::GetMilliseconds() - started, 1000) << "others may fill the queue for a moment";
    }
    setrlimit(RLIMIT_SIGPENDING, &previous);
    // The request is gone.
    EXPECT_EQ(Platform::ThreadExitCode(*thread), Platform::StillActive);
    Platform::Thread* other = start(2);
    EXPECT_TRUE(Platform::TerminateThread(*other, 9));
    EXPECT_EQ(Platform::ThreadExitCode(*other), 9);
    Platform::CloseThread(other);
    flags.stop = true;
    EXPECT_TRUE(Platform::WaitForThread(*thread));
    EXPECT_EQ(Platform::ThreadExitCode(*thread), 3);
    Platform::CloseThread(thread);
}

TEST(Sizes, SleepsEndInTime) {
    Platform::SharedMemory memory;
    const std::string name = "platform test " + std::to_string(ProcessId());
    ASSERT_EQ(memory.Open(name, {64}), Platform::SharedMemory::Opening::Created);
    auto& word = *new (memory.View()) std::atomic<std::uint32_t>(7);
    const auto start = Clock::now();
    EXPECT_FALSE(Platform::WaitOnWord(&word, 7, 20000));
    EXPECT_FALSE(memory.Sleep(word, 7, std::chrono::milliseconds(20)));
    EXPECT_FALSE(memory.Sleep(word, 7, std::chrono::milliseconds(-20)));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(40));
    // One that would last for ages is ended by its wake.
    std::atomic<bool> asleep{false};
    std::thread sleeper([&] {
        asleep = true;
        EXPECT_TRUE(Platform::WaitOnWord(&word, 7, std::numeric_limits<std::int64_t>::max()));
    });
    while (!asleep)
        std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    word = 8;
    Platform::WakeAllWaiters(&word);
    sleeper.join();
}

TEST(Sizes, FilesAndTimesGoBeyond32Bits) {
    const ScratchDirectory scratch;
    constexpr std::int64_t Far = std::int64_t{5} << 30;
    QzFile file;
    ASSERT_TRUE(file.Open(KeldMBString(scratch / "far"), QzFile::Access::ReadWrite));
    ASSERT_TRUE(file.Seek(Far));
    EXPECT_EQ(file.Write("end", 3), 3);
    EXPECT_EQ(file.GetLength(), Far + 3);
    ASSERT_TRUE(file.Close() && file.Open(KeldMBString(scratch / "far"), QzFile::Access::Read) && file.Seek(Far));
    char bytes[3] = {};
    EXPECT_EQ(file.Read(bytes, 3), 3);
    EXPECT_EQ(std::memcmp(bytes, "end", 3), 0);

    constexpr std::int64_t Day = 86400;
    EXPECT_EQ(KeldTime((std::int64_t{1} << 31) + Day).GetYear(), 2038);
    EXPECT_EQ(KeldTime(-(std::int64_t{1} << 31) - 2 * Day).GetYear(), 1901);
    EXPECT_EQ(KeldTime(2100, 6, 15, 12, 0, 0).GetYear(), 2100);
}

TEST(MissingCalls, AFileKeepsItsNameWhereNobodyTells) {
    const ScratchDirectory scratch;
    const std::string path = scratch / "file";
    for (const bool hasStatx : {true, false}) {
        SCOPED_TRACE(hasStatx);
        s_hasStatx = hasStatx;
        int error = 0;
        Platform::SharedFile shared;
        ASSERT_TRUE(shared.Open(path, Platform::SharedFile::Creation::Keep, error));
        EXPECT_EQ(shared.Append("four", 4), 4);
        EXPECT_EQ(shared.GetLength(), 4);
        EXPECT_TRUE(!shared.IsRemoved() && !shared.HasLeft(path));
        WriteBytes(scratch / "other", "");
        EXPECT_TRUE(shared.HasLeft(scratch / "other") && shared.HasLeft(scratch / "none") && shared.HasLeft(""));
        std::filesystem::remove(path);
        EXPECT_TRUE(shared.IsRemoved() && shared.HasLeft(path));
    }
    s_hasStatx = true;
    EXPECT_FALSE(Platform::SharedFile().IsRemoved()); // the question fails
}

TEST(MissingCalls, AReplacedLetterIsNotConverted) {
    const KeldMBString text("a\xE4\xB8\xAD z"); // U+4E2D between ASCII
    for (const bool replaces : {false, true}) {
        SCOPED_TRACE(replaces);
        KeldMBString latin;
        QzTextCodec codec(KELDCharset::Ansi, KELDCharset::UTF8);
        s_replaces = replaces;
        EXPECT_FALSE(codec.Convert(latin, text));
        EXPECT_TRUE(codec.Convert(latin, KeldMBString("\xC3\xA4 z")));
        s_replaces = false;
        EXPECT_EQ(latin, "\xE4 z");
    }
}
