#include "base/keldtime.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iomanip>
#include <locale>
#include <sstream>

#include "platform/localtime.h"

namespace KELD {

namespace {

// The calendar form; all zero (and 1900-01-00) for a time that has none.
std::tm Local(std::int64_t seconds) {
    std::tm local = {};
    Platform::LocalTime(seconds, local);
    return local;
}

bool FromLocal(std::tm local, std::int64_t& seconds) {
    local.tm_isdst = -1; // the time zone's rules know
    local.tm_wday = -1;  // mktime fills it in; -1 is no time's weekday, but may be a time's result
    const std::time_t time = std::mktime(&local);
    if (local.tm_wday != -1)
        seconds = time;
    return local.tm_wday != -1;
}

} // namespace

KeldTime::KeldTime(int year, int month, int day, int hour, int minute, int second) {
    constexpr int FirstYear = 1900;
    std::tm local = {};
    if (year < FirstYear - 100000000 || month == INT32_MIN)
        return;
    local.tm_year = year - FirstYear;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    FromLocal(local, m_seconds);
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
    const std::size_t length = std::strftime(text, sizeof(text), format.Cstr(), &local);
    return KeldMBString(text, static_cast<int>(length));
}

int KeldTime::Parse(const KeldMBString& format, const KeldMBString& text) {
    constexpr int LongestFormat = 1023;
    std::istringstream stream(std::string(text.View().substr(0, LongestFormat)));
    stream.imbue(std::locale::classic());
    std::tm local = {};
    local.tm_mday = 0; // says whether the format told a day
    stream >> std::get_time(&local, format.Cstr());
    if (stream.fail() || local.tm_mday == 0 || !FromLocal(local, m_seconds))
        return 0;
    return stream.eof() ? std::min(text.GetLength(), LongestFormat) : static_cast<int>(stream.tellg());
}

} // namespace KELD
