#include "platform/localtime.h"

#include <climits>
#include <limits>

#include "platform/win32/timezone.h"

// The C library here does not know the years before 1970 or after 3000, so the calendar is reckoned out; only the time
// zone's rules are the system's.

namespace Platform {

namespace {

constexpr std::int64_t SecondsPerDay = 86400;

bool ToCalendar(std::int64_t seconds, ZoneOffset offset, std::tm& calendar) {
    const bool overflows = offset.seconds > 0 ? seconds > std::numeric_limits<std::int64_t>::max() - offset.seconds
                                              : seconds < std::numeric_limits<std::int64_t>::min() - offset.seconds;
    if (overflows)
        return false;
    seconds += offset.seconds;
    const std::int64_t days = FloorDiv(seconds, SecondsPerDay);
    const CalendarDate date = DateOfDay(days);
    if (date.year - 1900 < INT_MIN || date.year - 1900 > INT_MAX)
        return false;
    const auto time = static_cast<int>(seconds - days * SecondsPerDay);
    calendar = {};
    calendar.tm_year = static_cast<int>(date.year - 1900);
    calendar.tm_mon = date.month - 1;
    calendar.tm_mday = date.day;
    calendar.tm_yday = static_cast<int>(days - DayNumber(date.year, 1, 1));
    calendar.tm_wday = WeekDay(days);
    calendar.tm_hour = time / 3600;
    calendar.tm_min = time / 60 % 60;
    calendar.tm_sec = time % 60;
    calendar.tm_isdst = offset.isDaylight ? 1 : 0;
    return true;
}

} // namespace

bool LocalTime(std::int64_t seconds, std::tm& local) {
    return ToCalendar(seconds, LocalOffsetAt(seconds), local);
}

bool UtcTime(std::int64_t seconds, std::tm& calendar) {
    return ToCalendar(seconds, {0, false}, calendar);
}

bool FromLocalTime(std::tm local, std::int64_t& seconds) {
    const std::int64_t yearsOn = FloorDiv(local.tm_mon, 12);
    const std::int64_t days =
        DayNumber(std::int64_t{local.tm_year} + 1900 + yearsOn, local.tm_mon - yearsOn * 12 + 1, local.tm_mday);
    const std::int64_t wall =
        days * SecondsPerDay + std::int64_t{local.tm_hour} * 3600 + std::int64_t{local.tm_min} * 60 + local.tm_sec;
    // The offsets of a day before and after: they differ where the clocks are changed in between. Of two moments with
    // this wall time the earlier one; where there is none, the clock would have shown it without the change.
    const std::int64_t before = LocalOffsetAt(wall - SecondsPerDay).seconds;
    const std::int64_t after = LocalOffsetAt(wall + SecondsPerDay).seconds;
    std::int64_t found = wall - before;
    if (LocalOffsetAt(found).seconds != before && LocalOffsetAt(wall - after).seconds == after)
        found = wall - after;
    std::tm check = {};
    if (!LocalTime(found, check))
        return false;
    seconds = found;
    return true;
}

} // namespace Platform
