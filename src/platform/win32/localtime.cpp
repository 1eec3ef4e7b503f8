#include "platform/localtime.h"

#include <array>
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

std::int64_t FloorDiv(std::int64_t value, std::int64_t divisor) {
    return value / divisor - (value % divisor < 0 ? 1 : 0);
}

bool IsLeap(std::int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// Days since 1970-01-01 of a day of the Gregorian calendar; a month beyond December is one of a later year.
std::int64_t DayNumber(std::int64_t year, std::int64_t month, std::int64_t day) { // month from 0
    year += FloorDiv(month, 12);
    month -= FloorDiv(month, 12) * 12;
    // Years that begin in March have their leap day at the end.
    const std::int64_t shifted = month < 2 ? year - 1 : year;
    const std::int64_t era = FloorDiv(shifted, 400);
    const std::int64_t yearOfEra = shifted - era * 400;
    const std::int64_t dayOfYear = (153 * ((month + 10) % 12) + 2) / 5;
    return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear + day - 1 - 719468;
}

bool FromDays(std::int64_t days, std::tm& date) {
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
    date.tm_yday = static_cast<int>(days - DayNumber(year, 0, 1));
    date.tm_wday = static_cast<int>(days + 4 - FloorDiv(days + 4, 7) * 7);
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
        days += DayNumber(2000 + (year % 400 + 400) % 400, 0, 1) - DayNumber(year, 0, 1); // the calendar repeats itself
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
    const std::int64_t ahead = (DayNumber(local.wYear, local.wMonth - 1, local.wDay) - days) * SecondsPerDay +
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

constexpr const char* Weekdays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
constexpr const char* Months[] = {"January", "February", "March",     "April",   "May",      "June",
                                  "July",    "August",   "September", "October", "November", "December"};

std::string Number(std::int64_t value, std::size_t width, char fill = '0') {
    std::string digits = std::to_string(value < 0 ? -value : value);
    const std::size_t wanted = width - (value < 0 && width != 0 ? 1 : 0);
    if (digits.size() < wanted)
        digits.insert(0, wanted - digits.size(), fill);
    return value < 0 ? '-' + digits : digits;
}

// The week of the year and its year by ISO 8601: weeks begin on Monday, the first has the year's first Thursday.
struct IsoWeek {
    std::int64_t year;
    int week;
};

IsoWeek IsoWeekOf(const std::tm& time) {
    std::int64_t year = std::int64_t{time.tm_year} + 1900;
    const int weekday = (time.tm_wday + 6) % 7;
    int thursday = time.tm_yday - weekday + 3;
    if (thursday < 0) {
        --year;
        thursday += IsLeap(year) ? 366 : 365;
    } else if (thursday >= (IsLeap(year) ? 366 : 365)) {
        thursday -= IsLeap(year) ? 366 : 365;
        ++year;
    }
    return {year, thursday / 7 + 1};
}

class Formatter {
public:
    explicit Formatter(const std::tm& time) : m_time(time) {}

    std::string Format(std::string_view format) {
        std::string text;
        for (std::size_t i = 0; i < format.size(); ++i) {
            if (format[i] != '%' || i + 1 == format.size()) {
                text += format[i];
                continue;
            }
            ++i;
            if ((format[i] == 'E' || format[i] == 'O') && i + 1 < format.size())
                ++i; // other eras and digits, of which the plain locale has none
            text += Convert(format[i]);
        }
        return text;
    }

private:
    std::string Convert(char conversion) {
        const std::tm& t = m_time;
        const std::int64_t year = std::int64_t{t.tm_year} + 1900;
        const int hour12 = t.tm_hour % 12 == 0 ? 12 : t.tm_hour % 12;
        switch (conversion) {
        case 'a': return std::string(Weekday()).substr(0, 3);
        case 'A': return Weekday();
        case 'b':
        case 'h': return std::string(Month()).substr(0, 3);
        case 'B': return Month();
        case 'c': return Format("%a %b %e %H:%M:%S %Y");
        case 'C': return Number(FloorDiv(year, 100), 2);
        case 'd': return Number(t.tm_mday, 2);
        case 'D':
        case 'x': return Format("%m/%d/%y");
        case 'e': return Number(t.tm_mday, 2, ' ');
        case 'F': return Format("%Y-%m-%d");
        case 'g': return Number(IsoWeekOf(t).year - FloorDiv(IsoWeekOf(t).year, 100) * 100, 2);
        case 'G': return Number(IsoWeekOf(t).year, 0);
        case 'H': return Number(t.tm_hour, 2);
        case 'I': return Number(hour12, 2);
        case 'j': return Number(t.tm_yday + 1, 3);
        case 'm': return Number(t.tm_mon + 1, 2);
        case 'M': return Number(t.tm_min, 2);
        case 'n': return "\n";
        case 'p': return t.tm_hour < 12 ? "AM" : "PM";
        case 'r': return Format("%I:%M:%S %p");
        case 'R': return Format("%H:%M");
        case 's': return Seconds();
        case 'S': return Number(t.tm_sec, 2);
        case 't': return "\t";
        case 'T':
        case 'X': return Format("%H:%M:%S");
        case 'u': return Number(t.tm_wday == 0 ? 7 : t.tm_wday, 1);
        case 'U': return Number((t.tm_yday + 7 - t.tm_wday) / 7, 2);
        case 'V': return Number(IsoWeekOf(t).week, 2);
        case 'w': return Number(t.tm_wday, 1);
        case 'W': return Number((t.tm_yday + 7 - (t.tm_wday + 6) % 7) / 7, 2);
        case 'y': return Number(year - FloorDiv(year, 100) * 100, 2);
        case 'Y': return Number(year, 0);
        case 'z': return ZoneOffset();
        case 'Z': return ZoneName();
        case '%': return "%";
        default: return std::string("%") + conversion;
        }
    }

    const char* Weekday() const { return m_time.tm_wday >= 0 && m_time.tm_wday < 7 ? Weekdays[m_time.tm_wday] : "?"; }
    const char* Month() const { return m_time.tm_mon >= 0 && m_time.tm_mon < 12 ? Months[m_time.tm_mon] : "?"; }

    std::string Seconds() const {
        std::int64_t seconds = 0;
        return FromLocalTime(m_time, seconds) ? std::to_string(seconds) : std::string();
    }
    std::string ZoneOffset() const {
        std::int64_t seconds = 0;
        if (m_time.tm_isdst < 0 || !FromLocalTime(m_time, seconds))
            return std::string();
        const std::int64_t minutes = OffsetAt(seconds).seconds / 60;
        const std::int64_t absolute = minutes < 0 ? -minutes : minutes;
        return (minutes < 0 ? "-" : "+") + Number(absolute / 60, 2) + Number(absolute % 60, 2);
    }
    std::string ZoneName() const {
        TIME_ZONE_INFORMATION zone = {};
        if (m_time.tm_isdst < 0 || GetTimeZoneInformation(&zone) == TIME_ZONE_ID_INVALID)
            return std::string();
        std::string name;
        for (const wchar_t* unit = m_time.tm_isdst > 0 ? zone.DaylightName : zone.StandardName; *unit != L'\0'; ++unit)
            name += *unit < 0x80 ? static_cast<char>(*unit) : '?';
        return name;
    }

    const std::tm& m_time;
};

} // namespace

bool LocalTime(std::int64_t seconds, std::tm& local) {
    return ToCalendar(seconds, OffsetAt(seconds), local);
}

bool UtcTime(std::int64_t seconds, std::tm& calendar) {
    return ToCalendar(seconds, {0, false}, calendar);
}

bool FromLocalTime(std::tm local, std::int64_t& seconds) {
    const std::int64_t days = DayNumber(std::int64_t{local.tm_year} + 1900, local.tm_mon, local.tm_mday);
    const std::int64_t wall = days * SecondsPerDay + std::int64_t{local.tm_hour} * 3600 +
                              std::int64_t{local.tm_min} * 60 + local.tm_sec;
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

std::size_t FormatTime(char* buffer, std::size_t size, const char* format, const std::tm& time) {
    const std::string text = Formatter(time).Format(format);
    if (text.size() >= size)
        return 0;
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return text.size();
}

} // namespace Platform
