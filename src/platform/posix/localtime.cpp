#include "platform/localtime.h"

#include <cstring>

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

// What the zone is, stands in the time itself.
bool FormatBySystem(char* buffer, std::size_t size, std::string_view conversion, const std::tm& time, bool,
                    std::size_t& length) {
    constexpr std::size_t Longest = 1024;
    char format[64] = "."; // by which an empty result is told from none
    char text[Longest + 2];
    if (conversion.size() > sizeof(format) - 2)
        return false;
    conversion.copy(format + 1, conversion.size());
    const std::size_t written = std::strftime(text, sizeof(text), format, &time);
    length = written - 1;
    if (written == 0 || length > size)
        return false;
    std::memcpy(buffer, text + 1, length);
    return true;
}

} // namespace Platform
