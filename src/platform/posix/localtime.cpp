#include "platform/localtime.h"

namespace Platform {

bool LocalTime(std::int64_t seconds, std::tm& local) {
    const auto time = static_cast<std::time_t>(seconds);
    return localtime_r(&time, &local) != nullptr;
}

bool UtcTime(std::int64_t seconds, std::tm& calendar) {
    const auto time = static_cast<std::time_t>(seconds);
    return gmtime_r(&time, &calendar) != nullptr;
}

} // namespace Platform
