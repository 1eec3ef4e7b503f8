#pragma once

#include <cstdint>
#include <ctime>

namespace Platform {

/// The local calendar time of a second since 1970-01-01 UTC, in the time zone that the process started with.
/// False when it has none (the year does not fit). Any thread.
bool LocalTime(std::int64_t seconds, std::tm& local);

/// The same in UTC.
bool UtcTime(std::int64_t seconds, std::tm& calendar);

} // namespace Platform
