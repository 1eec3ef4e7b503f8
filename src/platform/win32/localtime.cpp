#include "platform/localtime.h"

#include <climits>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include "platform/win32/system.h"

// The C library here knows neither the years before 1970 or after 3000 nor half of the standard's conversions, so the
// calendar is reckoned out; only the time zone's rules are the system's.

namespace Platform {

namespace {

constexpr std::int64_t SecondsPerDay = 86400;

bool FromDays(std::int64_t days, std::tm& date) {
    // In years that begin in March, which have their leap day at the end; eras are those of 400 years.
    const std::int64_t shifted = days + 719468;
    const std::int64_t era = FloorDiv(shifted, 146097);
    const std::int64_t dayOfEra = shifted - era * 146097;
    const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t month = (5 * dayOfYear + 2) / 153; // from March
    date.tm_mday = static_cast<int>(dayOfYear - (153 * month + 2) / 5 + 1);
    date.tm_mon = static_cast<int>((month + 2) % 12);
    const std::int64_t year = yearOfEra + era * 400 + (date.tm_mon < 2 ? 1 : 0);
    if (year - 1900 < INT_MIN || year - 1900 > INT_MAX)
        return false;
    date.tm_year = static_cast<int>(year - 1900);
    date.tm_yday = static_cast<int>(days - DayNumber(year, 1, 1));
    date.tm_wday = WeekDay(days);
    return true;
}

// Seconds that local time is ahead of UTC at a moment, and whether they are those of summer. The system knows rules for
// the years from 1601 to 30827; others have those of a year of the same form.
struct Offset {
    std::int64_t seconds;
    bool isDaylight;
};

Offset OffsetAt(std::int64_t seconds) {
    std::int64_t days = FloorDiv(seconds, SecondsPerDay);
    std::tm date = {};
    if (!FromDays(days, date))
        return {0, false};
    const std::int64_t year = std::int64_t{date.tm_year} + 1900;
    if (year < 1602 || year > 30800)
        days += DayNumber(2000 + (year % 400 + 400) % 400, 1, 1) - DayNumber(year, 1, 1); // the calendar repeats itself
    FromDays(days, date);
    const std::int64_t time = seconds - FloorDiv(seconds, SecondsPerDay) * SecondsPerDay;
    SYSTEMTIME utc = {};
    utc.wYear = static_cast<WORD>(date.tm_year + 1900);
    utc.wMonth = static_cast<WORD>(date.tm_mon + 1);
    utc.wDay = static_cast<WORD>(date.tm_mday);
    utc.wHour = static_cast<WORD>(time / 3600);
    utc.wMinute = static_cast<WORD>(time / 60 % 60);
    utc.wSecond = static_cast<WORD>(time % 60);
    SYSTEMTIME local = {};
    TIME_ZONE_INFORMATION zone = {};
    if (GetTimeZoneInformationForYear(utc.wYear, nullptr, &zone) == 0 ||
        SystemTimeToTzSpecificLocalTime(&zone, &utc, &local) == 0)
        return {0, false};
    const std::int64_t ahead = (DayNumber(local.wYear, local.wMonth, local.wDay) - days) * SecondsPerDay +
                               local.wHour * 3600 + local.wMinute * 60 + local.wSecond - time;
    return {ahead, zone.DaylightDate.wMonth != 0 && ahead != -60 * std::int64_t{zone.Bias + zone.StandardBias}};
}

bool ToCalendar(std::int64_t seconds, Offset offset, std::tm& calendar) {
    const bool overflows = offset.seconds > 0 ? seconds > std::numeric_limits<std::int64_t>::max() - offset.seconds
                                              : seconds < std::numeric_limits<std::int64_t>::min() - offset.seconds;
    if (overflows)
        return false;
    seconds += offset.seconds;
    std::tm result = {};
    const std::int64_t days = FloorDiv(seconds, SecondsPerDay);
    const auto time = static_cast<int>(seconds - days * SecondsPerDay);
    if (!FromDays(days, result))
        return false;
    result.tm_hour = time / 3600;
    result.tm_min = time / 60 % 60;
    result.tm_sec = time % 60;
    result.tm_isdst = offset.isDaylight ? 1 : 0;
    calendar = result;
    return true;
}

std::string ZoneOffset(const std::tm& time) {
    std::int64_t seconds = 0;
    if (time.tm_isdst < 0 || !FromLocalTime(time, seconds))
        return std::string();
    const std::int64_t minutes = OffsetAt(seconds).seconds / 60;
    const std::int64_t absolute = minutes < 0 ? -minutes : minutes;
    const std::string digits = std::to_string(10000 + absolute / 60 * 100 + absolute % 60).substr(1);
    return (minutes < 0 ? "-" : "+") + digits;
}

std::string ZoneName(const std::tm& time) {
    TIME_ZONE_INFORMATION zone = {};
    if (time.tm_isdst < 0 || GetTimeZoneInformation(&zone) == TIME_ZONE_ID_INVALID)
        return std::string();
    std::string name;
    for (const wchar_t* unit = time.tm_isdst > 0 ? zone.DaylightName : zone.StandardName; *unit != L'\0'; ++unit)
        name += *unit < 0x80 ? static_cast<char>(*unit) : '?';
    return name;
}

std::string Seconds(const std::tm& time) {
    std::int64_t seconds = 0;
    return FromLocalTime(time, seconds) ? std::to_string(seconds) : std::string();
}

// Its conversions beyond those of C89 end the process.
std::string ByLibrary(char conversion, const std::tm& time) {
    const bool isNamed = time.tm_wday >= 0 && time.tm_wday < 7 && time.tm_mon >= 0 && time.tm_mon < 12;
    if (!isNamed || std::string_view("aAbBpxX").find(conversion) == std::string_view::npos)
        return std::string();
    char text[256];
    const char format[] = {'%', conversion, '\0'};
    return std::string(text, std::strftime(text, sizeof(text), format, &time));
}

} // namespace

bool LocalTime(std::int64_t seconds, std::tm& local) {
    return ToCalendar(seconds, OffsetAt(seconds), local);
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
    const Offset before = OffsetAt(wall - SecondsPerDay);
    const Offset after = OffsetAt(wall + SecondsPerDay);
    std::int64_t found = wall - before.seconds;
    if (OffsetAt(found).seconds != before.seconds && OffsetAt(wall - after.seconds).seconds == after.seconds)
        found = wall - after.seconds;
    std::tm check = {};
    if (!LocalTime(found, check))
        return false;
    seconds = found;
    return true;
}

bool FormatBySystem(char* buffer, std::size_t size, std::string_view conversion, const std::tm& time,
                    std::size_t& length) {
    std::string text;
    const char letter = conversion.size() > 1 ? conversion.back() : '\0'; // flags and widths are unknown here
    switch (letter) {
    case 'h': text = ByLibrary('b', time); break;
    case 's': text = Seconds(time); break;
    case 'z': text = ZoneOffset(time); break;
    case 'Z': text = ZoneName(time); break;
    case 'c':
    case 'r': {
        char written[256];
        text.assign(written,
                    FormatTime(written, sizeof(written), letter == 'r' ? "%I:%M:%S %p" : "%a %b %e %T %Y", time));
        break;
    }
    default:
        text = ByLibrary(letter, time);
        if (text.empty())
            text = conversion;
        break;
    }
    length = text.size();
    if (length > size)
        return false;
    std::memcpy(buffer, text.data(), length);
    return true;
}

} // namespace Platform
