#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string_view>

#include "platform/calendar.h"
#include "platform/export.h"

/// The calendar, for every year that a tm can tell, before 1970 and beyond 2038 too. Any thread.
namespace Platform {

/// The local calendar time of a second since 1970-01-01 UTC, in the time zone that the process started with; where all
/// processes have the system's, in the one that it has now. False when it has none (the year does not fit).
MOPLATFORM_API bool LocalTime(std::int64_t seconds, std::tm& local);

/// The same in UTC.
MOPLATFORM_API bool UtcTime(std::int64_t seconds, std::tm& calendar);

/// The other way round: fields beyond their range count on. Whether daylight-saving time holds is found by the time
/// zone's rules, whatever the field says. False, and `seconds` left as it was, for what the calendar cannot hold.
MOPLATFORM_API bool FromLocalTime(std::tm local, std::int64_t& seconds);

/// Writes a time of the first two as strftime does by the standard of C++17, with all its conversions (%F %T %e %G %V
/// ...), years as they are ("-5", "12345"); the number of bytes before the terminator. 0 when they do not fit. Numbers
/// are the same on every system; the rest is FormatBySystem's. `isUtc`: the time is UtcTime's.
MOPLATFORM_API std::size_t FormatTime(char* buffer, std::size_t size, const char* format, const std::tm& time,
                                      bool isUtc = false);

/// One conversion, from the percent sign to the letter, as the C library writes it: names and what else the locale
/// decides, time zones, flags and widths where it has such. Without a terminator. False without room or memory for it.
MOPLATFORM_API bool FormatBySystem(char* buffer, std::size_t size, std::string_view conversion, const std::tm& time,
                                   bool isUtc, std::size_t& length);

} // namespace Platform
