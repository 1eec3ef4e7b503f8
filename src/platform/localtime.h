#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

/// The calendar, for every year that a tm can tell, before 1970 and beyond 2038 too. Any thread.
namespace Platform {

/// The local calendar time of a second since 1970-01-01 UTC, in the time zone that the process started with.
/// False when it has none (the year does not fit).
bool LocalTime(std::int64_t seconds, std::tm& local);

/// The same in UTC.
bool UtcTime(std::int64_t seconds, std::tm& calendar);

/// The other way round: fields beyond their range count on. Whether daylight-saving time holds is found by the time
/// zone's rules, whatever the field says. False, and `seconds` left as it was, for what the calendar cannot hold.
bool FromLocalTime(std::tm local, std::int64_t& seconds);

/// Writes a time of the two above as strftime does by the standard of C++17, with all its conversions (%F %T %e %G %V
/// ...) and with years beyond 9999; the number of bytes before the terminator. 0 when they do not fit.
std::size_t FormatTime(char* buffer, std::size_t size, const char* format, const std::tm& time);

} // namespace Platform
