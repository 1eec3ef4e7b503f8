#include "base/keldtime.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <limits>

#include "base/timereader.h"
#include "platform/localtime.h"

namespace KELD {

namespace {

// The calendar form. Years are counted by an int: times beyond it read as the last that it surely holds.
std::tm Local(std::int64_t seconds) {
    constexpr std::int64_t Last = std::int64_t{31556952} * 2147000000;
    std::tm local = {};
    local.tm_mday = 1;
    Platform::LocalTime(std::clamp(seconds, -Last, Last), local);
    return local;
}

} // namespace

KeldTime::KeldTime(int year, int month, int day, int hour, int minute, int second) {
    constexpr int FirstYear = 1900;
    std::tm local = {};
    // The C library counts both from lower bounds that an int may fall short of.
    if (year < std::numeric_limits<int>::min() + FirstYear || month == std::numeric_limits<int>::min())
        return;
    local.tm_year = year - FirstYear;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    Platform::FromLocalTime(local, m_seconds);
}

KeldTime KeldTime::GetCurrentTime() {
    return KeldTime(std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()));
}

std::int64_t KeldTime::GetMilliseconds() {
    using Clock = std::chrono::steady_clock;
    static const Clock::time_point s_start = Clock::now();
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - s_start).count();
}

int KeldTime::GetYear() const {
    return Local(m_seconds).tm_year + 1900;
}

int KeldTime::GetMonth() const {
    return Local(m_seconds).tm_mon + 1;
}

int KeldTime::GetDay() const {
    return Local(m_seconds).tm_mday;
}

int KeldTime::GetHour() const {
    return Local(m_seconds).tm_hour;
}

int KeldTime::GetMinute() const {
    return Local(m_seconds).tm_min;
}

int KeldTime::GetSecond() const {
    return Local(m_seconds).tm_sec;
}

int KeldTime::GetDayOfWeek() const {
    return Local(m_seconds).tm_wday + 1;
}

KeldMBString KeldTime::Format(const KeldMBString& format) const {
    const std::tm local = Local(m_seconds);
    char text[1024];
    const std::size_t length = Platform::FormatTime(text, sizeof(text), format.Cstr(), local);
    return KeldMBString(text, static_cast<int>(length));
}

int KeldTime::Parse(const KeldMBString& format, const KeldMBString& text) {
    TimeReader reader(text.View());
    std::tm local = {};
    if (!reader.Read(format.View(), local) || !Platform::FromLocalTime(local, m_seconds))
        return 0;
    return text.GetLength() - static_cast<int>(reader.Rest().size());
}

} // namespace KELD
