#pragma once

#include <cstdint>
#include <string_view>

/// The rules of today's calendar, for every year, before the first one too: what writes dates and what reads them go by
/// the same. Months count from 1, days of the week from Sunday, which is 0, and days of the year from 0, as a tm has
/// them.
namespace Platform {

constexpr std::int64_t FloorDiv(std::int64_t a, std::int64_t b) { ///< `b` is positive
    return a / b - (a % b < 0 ? 1 : 0);
}

constexpr bool IsLeapYear(std::int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

constexpr int DaysOfYear(std::int64_t year) {
    return IsLeapYear(year) ? 366 : 365;
}

constexpr int DaysOfMonth(std::int64_t year, std::int64_t month) {
    constexpr int Days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return Days[month - 1] + (month == 2 && IsLeapYear(year) ? 1 : 0);
}

/// Days since 1970-01-01. The day may lie beyond its month.
constexpr std::int64_t DayNumber(std::int64_t year, std::int64_t month, std::int64_t day) {
    // Years that start in March have their leap day at the end.
    constexpr std::int64_t BeforeMonth[] = {306, 337, 0, 31, 61, 92, 122, 153, 184, 214, 245, 275};
    const std::int64_t marchYear = month > 2 ? year : year - 1;
    return 365 * marchYear + FloorDiv(marchYear, 4) - FloorDiv(marchYear, 100) + FloorDiv(marchYear, 400) +
           BeforeMonth[month - 1] + day - 1 - 719468;
}

/// The other way round.
struct CalendarDate {
    std::int64_t year;
    int month, day;
};

constexpr CalendarDate DateOfDay(std::int64_t dayNumber) {
    constexpr std::int64_t DaysOfEra = 146097; // 400 years that begin in March
    const std::int64_t shifted = dayNumber + 719468;
    const std::int64_t era = FloorDiv(shifted, DaysOfEra);
    const std::int64_t day = shifted - era * DaysOfEra;
    const std::int64_t year = (day - day / 1460 + day / 36524 - day / (DaysOfEra - 1)) / 365;
    const std::int64_t yearDay = day - (365 * year + year / 4 - year / 100);
    const std::int64_t month = (5 * yearDay + 2) / 153; // from March
    return {era * 400 + year + (month >= 10 ? 1 : 0), static_cast<int>((month + 2) % 12 + 1),
            static_cast<int>(yearDay - (153 * month + 2) / 5 + 1)};
}

constexpr int WeekDay(std::int64_t dayNumber) {
    return static_cast<int>(dayNumber + 4 - FloorDiv(dayNumber + 4, 7) * 7);
}

constexpr int SinceMonday(int weekDay) {
    return (weekDay + 6) % 7;
}

/// The last two digits, and what they mean where nothing tells the century: 69 is 1969, 68 is 2068.
constexpr int YearInCentury(std::int64_t year) {
    return static_cast<int>(year - FloorDiv(year, 100) * 100);
}
constexpr int YearOfTwoDigits(int year) {
    return year + (year < 69 ? 2000 : 1900);
}

/// The week of a year whose weeks start with a certain day, which is `sinceStart` days ago; 0 in front of the first.
constexpr int WeekOfYear(int yearDay, int sinceStart) {
    return (yearDay + 7 - sinceStart) / 7;
}

/// A week that starts on Monday and belongs to the year that has its Thursday.
struct IsoWeek {
    constexpr IsoWeek(std::int64_t calendarYear, int yearDay, int weekDay) : year(calendarYear) {
        int thursday = yearDay + 3 - SinceMonday(weekDay);
        if (thursday < 0)
            thursday += DaysOfYear(--year);
        else if (thursday >= DaysOfYear(year))
            thursday -= DaysOfYear(year++);
        week = thursday / 7 + 1;
    }

    std::int64_t year;
    int week = 0;
};

/// Where such a year's first week starts: the day of January, which may lie before the 1st.
constexpr int FirstIsoMonday(std::int64_t year) {
    return 4 - SinceMonday(WeekDay(DayNumber(year, 1, 4)));
}

constexpr int IsoWeeksOfYear(std::int64_t year) {
    return FirstIsoMonday(year) + 52 * 7 + 3 <= DaysOfYear(year) ? 53 : 52;
}

/// What a conversion of strftime's stands for that only puts others together, by the "C" locale; empty for the rest.
constexpr std::string_view ComposedTimeFormat(char conversion) {
    switch (conversion) {
    case 'D':
    case 'x': return "%m/%d/%y";
    case 'F': return "%Y-%m-%d";
    case 'T':
    case 'X': return "%H:%M:%S";
    case 'R': return "%H:%M";
    case 'r': return "%I:%M:%S %p";
    case 'c': return "%a %b %e %H:%M:%S %Y";
    default: return {};
    }
}

} // namespace Platform
