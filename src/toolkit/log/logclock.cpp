#include "toolkit/log/logclock.h"

#include <atomic>

namespace Qzc {

namespace {

std::atomic<KeldTime (*)()> s_clock{KeldTime::GetCurrentTime};

} // namespace

KeldTime GetLogTime() {
    return s_clock.load()();
}

void SetLogClock(KeldTime (*clock)()) {
    s_clock = clock != nullptr ? clock : KeldTime::GetCurrentTime;
}

} // namespace Qzc
