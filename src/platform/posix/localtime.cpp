#include "platform/localtime.h"

namespace Platform {

static_assert(sizeof(std::time_t) == sizeof(std::int64_t));

bool LocalTime(std::int64_t seconds, std::tm& local) {
    const auto time = static_cast<std::time_t>(seconds);
    return localtime_r(&time, &local) != nullptr;
}

bool UtcTime(std::int64_t seconds, std::tm& calendar) {
    const auto time = static_cast<std::time_t>(seconds);
    return gmtime_r(&time, &calendar) != nullptr;
}

bool FromLocalTime(std::tm local, std::int64_t& seconds) {
    local.tm_isdst = -1;
    local.tm_wday = -1; // mktime fills it in; -1 is no time's weekday, but may be a time's result
    const std::time_t time = std::mktime(&local);
    if (local.tm_wday == -1)
        return false;
    seconds = time;
    return true;
}

std::size_t FormatTime(char* buffer, std::size_t size, const char* format, const std::tm& time) {
    return std::strftime(buffer, size, format, &time);
}

} // namespace Platform
