#include "toolkit/log/logclock.h"

#include <atomic>
#include <chrono>
#include <ctime>

#include "platform/localtime.h"

namespace Qzc {

namespace {

std::atomic<KeldTime (*)()> s_clock{nullptr};

} // namespace

KeldTime GetLogTime() {
    int milliseconds = 0;
    return GetLogTime(milliseconds);
}

KeldTime GetLogTime(int& milliseconds) {
    if (const auto clock = s_clock.load(std::memory_order_relaxed)) {
        milliseconds = 0;
        return clock();
    }
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
    milliseconds = static_cast<int>((now - seconds) / std::chrono::milliseconds(1));
    return KeldTime(seconds.count());
}

void SetLogClock(KeldTime (*clock)()) {
    s_clock = clock;
}

KeldMBString FormatLogTime(KeldTime time, const KeldMBString& format, bool utc) {
    if (!utc)
        return time.Format(format);
    constexpr std::size_t MaxLength = 1024;
    std::tm calendar = {};
    Platform::UtcTime(time.GetTime(), calendar);
    char text[MaxLength];
    const std::size_t length = Platform::FormatTime(text, sizeof(text), format.Cstr(), calendar, true);
    return KeldMBString(text, static_cast<int>(length));
}

} // namespace Qzc
