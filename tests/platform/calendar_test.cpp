// The calendar against arithmetic: the same on every system, in every year that a time can have.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <random>
#include <string>

#include "base/keldtime.h"
#include "platform/localtime.h"
#include "support.h"

using namespace KELD;

namespace {

constexpr std::int64_t Day = 86400;
constexpr std::int64_t Era = 146097; // days of 400 years

bool IsLeap(std::int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

std::int64_t Floor(std::int64_t a, std::int64_t b) {
    return a / b - (a % b < 0 ? 1 : 0);
}

struct Date {
    std::int64_t year;
    int month, day, yearDay, weekDay; // from 1, but Sunday is 0
};

// Counts through the 400 years after which all comes again.
Date DateOf(std::int64_t day) {
    constexpr int Lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const std::int64_t sinceYear2000 = day - 10957; // a Saturday
    Date date = {2000 + 400 * Floor(sinceYear2000, Era), 1, 1, 1, 0};
    date.weekDay = static_cast<int>(sinceYear2000 + 6 - Floor(sinceYear2000 + 6, 7) * 7);
    std::int64_t left = sinceYear2000 - Floor(sinceYear2000, Era) * Era;
    for (int length = 366; left >= length; length = IsLeap(date.year) ? 366 : 365) {
        left -= length;
        ++date.year;
    }
    date.yearDay = static_cast<int>(left) + 1;
    for (int month = 0; left >= Lengths[month] + (month == 1 && IsLeap(date.year) ? 1 : 0); ++month) {
        left -= Lengths[month] + (month == 1 && IsLeap(date.year) ? 1 : 0);
        ++date.month;
    }
    date.day = static_cast<int>(left) + 1;
    return date;
}

// "%F %T %e %G-%V %j %w %C", put together by hand. The week belongs to the year of its Thursday.
std::string Written(std::int64_t seconds) {
    const std::int64_t day = Floor(seconds, Day);
    const int rest = static_cast<int>(seconds - day * Day);
    const Date date = DateOf(day);
    const Date thursday = DateOf(day + 3 - (date.weekDay + 6) % 7);
    std::array<char, 200> text = {};
    std::snprintf(text.data(), text.size(), "%lld-%02d-%02d %02d:%02d:%02d %2d %lld-%02d %03d %d",
                  static_cast<long long>(date.year), date.month, date.day, rest / 3600, rest / 60 % 60, rest % 60,
                  date.day, static_cast<long long>(thursday.year), (thursday.yearDay - 1) / 7 + 1, date.yearDay,
                  date.weekDay);
    return text.data();
}

} // namespace

TEST(Calendar, IsArithmetic) {
    constexpr std::int64_t EastOfUtc = 8 * 3600;
    const EnvironmentVariable zone("TZ", "CST-8");
    std::time_t reread = 0;
    std::mktime(std::gmtime(&reread)); // the C library looks at the variable now
    constexpr std::int64_t Last = std::int64_t{31556952} * 2147000000;
    std::mt19937_64 random(11);
    const std::string format = "%F %T %e %G-%V %j %w";
    for (int i = 0; i < Often(20000); ++i) {
        // Of every size; and the last second of a day, and the first.
        std::int64_t seconds = static_cast<std::int64_t>(random()) % Last >> random() % 56;
        if (i % 4 == 0)
            seconds = Floor(seconds, Day) * Day - (i / 4 % 2) - EastOfUtc;
        std::tm utc = {};
        ASSERT_TRUE(Platform::UtcTime(seconds, utc));
        char text[100];
        ASSERT_NE(Platform::FormatTime(text, sizeof(text), format.c_str(), utc), 0U);
        const std::int64_t year = utc.tm_year + std::int64_t{1900};
        // How shorter years are filled up differs from one C library to the next.
        ASSERT_TRUE(text == Written(seconds) || (year < 1001 && year > -1001)) << text << ' ' << Written(seconds);
        const KeldTime time(seconds);
        const Date date = DateOf(Floor(seconds + EastOfUtc, Day));
        ASSERT_EQ(time.GetYear(), date.year) << seconds;
        ASSERT_EQ(time.GetMonth() * 100 + time.GetDay(), date.month * 100 + date.day) << seconds;
        ASSERT_EQ(time.GetDayOfWeek(), date.weekDay + 1) << seconds;
        ASSERT_EQ(time.GetHour() * 3600 + time.GetMinute() * 60 + time.GetSecond(),
                  seconds + EastOfUtc - Floor(seconds + EastOfUtc, Day) * Day);
        const KeldTime back(time.GetYear(), time.GetMonth(), time.GetDay(), time.GetHour(), time.GetMinute(),
                            time.GetSecond());
        ASSERT_EQ(back.GetTime(), seconds);
    }
}
