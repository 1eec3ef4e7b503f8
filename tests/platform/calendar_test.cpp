// The calendar against arithmetic: the same on every system, in every year that a time can have.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <random>
#include <string>
#include <tuple>

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

} // namespace

TEST(Calendar, IsArithmetic) {
    constexpr std::int64_t EastOfUtc = 8 * 3600;
    const EnvironmentVariable zone("TZ", "CST-8");
    std::time_t reread = 0;
    std::mktime(std::gmtime(&reread)); // the C library looks at the variable now
    constexpr std::int64_t Last = std::int64_t{31556952} * 2147000000;
    std::mt19937_64 random(11);
    // By month, day of the year and week; numbers that run together have a year of four digits.
    const char* const formats[] = {"%F %T", "%G-W%V-%u %H:%M:%S", "%A %e %B %Y, %I:%M:%S %p", "%Y.%j%t%R:%S", "%c"};
    for (int i = 0; i < Often(20000); ++i) {
        // Of every size; and the last second of a day, and the first.
        std::int64_t seconds = static_cast<std::int64_t>(random()) % Last >> random() % 56;
        if (i % 4 == 0)
            seconds = Floor(seconds, Day) * Day - (i / 4 % 2) - EastOfUtc;
        const KeldTime time(seconds);
        const Date date = DateOf(Floor(seconds + EastOfUtc, Day));
        const KeldTime back(static_cast<int>(date.year), date.month, date.day, time.GetHour(), time.GetMinute(),
                            time.GetSecond());
        ASSERT_EQ(back.GetTime(), seconds);
        char text[100];
        const int length =
            std::snprintf(text, sizeof(text), "%lld-%02d-%02d %03d %d", static_cast<long long>(date.year), date.month,
                          date.day, date.yearDay, date.weekDay);
        ASSERT_EQ(time.Format("%F %j %w"), text) << seconds;
        std::tm local = {};
        ASSERT_TRUE(Platform::LocalTime(seconds, local));
        const auto size = static_cast<std::size_t>(length);
        ASSERT_EQ(Platform::FormatTime(text, size + 1, "%F %j %w", local), size);
        ASSERT_EQ(Platform::FormatTime(text, size, "%F %j %w", local), 0U);
        const char* const format = formats[random() % std::size(formats)];
        const KeldMBString written = time.Format(format);
        KeldTime read;
        ASSERT_EQ(read.Parse(format, written + "."), written.GetLength()) << written;
        ASSERT_EQ(read, time) << written;
    }
}

TEST(Calendar, ReadsNoOtherDates) {
    using Case = std::tuple<const char*, const char*, int>;
    const Case cases[] = {{"%F", "2021-02-29", 0},
                          {"%F", "1900-02-29", 0},
                          {"%F", "2021-00-01", 0},
                          {"%F", "", 0},
                          {"%F", "2020-02-29!", 10},
                          {"%Y%m%d", "20200229", 8},
                          {"%Y-%j", "2021-366", 0},
                          {"%Y-%j", "2020-366", 8},
                          {"%G-%V-%u", "2021-53-1", 0},
                          {"%G-%V-%u", "2020-53-1", 9},
                          {"%Y-%m-%e", "2020-02- 9", 10},
                          {"%F", "-2147483000-01-01", 0},
                          {"%F", "99999999999-01-01", 0},
                          {"%F %T", "2020-02-29 24:00:00", 0},
                          {"%F %T", "2020-02-29 23:59:60", 19},
                          {"%F%", "2020-02-29", 0}};
    for (const auto& [format, text, read] : cases) {
        KeldTime time(5);
        EXPECT_EQ(time.Parse(format, text), read) << format << ' ' << text;
        EXPECT_EQ(time == KeldTime(5), read == 0) << text;
    }
    KeldTime time;
    EXPECT_TRUE(time.Parse("%d %b %y", "1 dec 68") != 0 && time.GetYear() == 2068 && time.GetMonth() == 12);
    EXPECT_TRUE(time.Parse("%H=%I %F", "15=03 2021-01-03") != 0 && time == KeldTime(2021, 1, 3, 15, 0, 0));
}
