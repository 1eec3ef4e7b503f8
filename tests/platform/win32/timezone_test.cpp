// The rules of time zones against the system's own reckoning.

#include "platform/win32/timezone.h"

#include <gtest/gtest.h>

#include <random>
#include <utility>

#include "platform/calendar.h"

TEST(TimeZones, AreTheSystems) {
    std::mt19937 random(12);
    const auto upTo = [&](unsigned int limit) { return static_cast<WORD>(random() % (limit + 1)); };
    for (int i = 0; i < 2000; ++i) {
        TIME_ZONE_INFORMATION zone = {};
        zone.Bias = 15 * (upTo(112) - 56);
        zone.StandardBias = upTo(9) == 0 ? 30 : 0;
        zone.DaylightBias = upTo(2) == 0 ? -30 : -60;
        const auto change = [&](unsigned int month) {
            return SYSTEMTIME{
                0, static_cast<WORD>(month), upTo(6), static_cast<WORD>(1 + upTo(4)), upTo(23), upTo(59), 0, 0};
        };
        zone.DaylightDate = change(2 + upTo(3));
        zone.StandardDate = change(8 + upTo(3));
        if (upTo(1) == 0) // in the south
            std::swap(zone.DaylightDate, zone.StandardDate);
        if (upTo(5) == 0)
            zone.DaylightDate = zone.StandardDate = {};
        const std::int64_t year = 1971 + upTo(200);
        const Platform::ZoneYear rules = Platform::RulesOf(zone, year);
        for (int j = 0; j < 40; ++j) {
            std::int64_t moment = (Platform::DayNumber(year, 1, 2) + upTo(362)) * 86400 + upTo(43200) * 2;
            if (j % 2 == 0 && rules.start != rules.end) // beside a change
                moment = (j % 4 == 0 ? rules.start : rules.end) - upTo(1);
            constexpr std::int64_t From1601 = 11644473600;
            std::int64_t ticks = (moment + From1601) * 10000000;
            SYSTEMTIME time = {};
            FileTimeToSystemTime(reinterpret_cast<FILETIME*>(&ticks), &time);
            ASSERT_NE(SystemTimeToTzSpecificLocalTime(&zone, &time, &time), 0);
            SystemTimeToFileTime(&time, reinterpret_cast<FILETIME*>(&ticks));
            ASSERT_EQ(moment + rules.At(moment).seconds, ticks / 10000000 - From1601) << i << ' ' << moment;
        }
    }
}
