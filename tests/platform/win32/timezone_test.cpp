// The rules of time zones against the system's own reckoning.

#include "platform/win32/timezone.h"

#include <gtest/gtest.h>

#include <random>

#include "platform/calendar.h"
#include "platform/localtime.h"

using namespace Platform;

TEST(TimeZones, AreTheSystems) {
    std::mt19937 random(12);
    const auto upTo = [&](int limit) { return static_cast<int>(random() % (static_cast<unsigned>(limit) + 1)); };
    for (int i = 0; i < 2000; ++i) {
        TIME_ZONE_INFORMATION zone = {};
        zone.Bias = 15 * (upTo(112) - 56);
        zone.StandardBias = upTo(9) == 0 ? 30 : 0;
        zone.DaylightBias = upTo(2) == 0 ? -30 : -60;
        const int month = 2 + upTo(3); // of one change; the other is in the autumn of the other hemisphere
        const auto change = [&](int ofMonth) {
            SYSTEMTIME date = {};
            date.wMonth = static_cast<WORD>(ofMonth);
            date.wDay = static_cast<WORD>(1 + upTo(4));
            date.wDayOfWeek = static_cast<WORD>(upTo(6));
            date.wHour = static_cast<WORD>(upTo(23));
            date.wMinute = static_cast<WORD>(upTo(59));
            return date;
        };
        if (upTo(5) != 0) {
            const bool isNorth = upTo(1) == 0;
            zone.DaylightDate = change(isNorth ? month : month + 6);
            zone.StandardDate = change(isNorth ? month + 6 : month);
        }
        const int year = 1971 + upTo(200);
        const ZoneYear rules = RulesOf(zone, year);
        for (int j = 0; j < 40; ++j) {
            const std::int64_t day = DayNumber(year, 1, 2) + upTo(362);
            std::int64_t moment = day * 86400 + upTo(86399);
            if (j % 2 == 0) // beside a change
                moment = (j % 4 == 0 ? rules.start : rules.end) - 1 + upTo(1);
            std::tm utc = {};
            ASSERT_TRUE(UtcTime(moment, utc));
            if (utc.tm_year != year - 1900)
                continue;
            const auto word = [](int value) { return static_cast<WORD>(value); };
            SYSTEMTIME time = {word(year),       word(utc.tm_mon + 1), 0, word(utc.tm_mday), word(utc.tm_hour),
                               word(utc.tm_min), word(utc.tm_sec),     0};
            SYSTEMTIME local = {};
            ASSERT_NE(SystemTimeToTzSpecificLocalTime(&zone, &time, &local), 0);
            const std::int64_t expected = DayNumber(local.wYear, local.wMonth, local.wDay) * 86400 +
                                          local.wHour * 3600 + local.wMinute * 60 + local.wSecond;
            ASSERT_EQ(moment + rules.At(moment).seconds, expected) << i << ' ' << moment;
        }
    }
}
