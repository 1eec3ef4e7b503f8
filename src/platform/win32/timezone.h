#pragma once

#include <cstdint>
#include <string>

#include "platform/export.h"
#include "platform/win32/system.h"

/// The local time zone: the system's rules, reckoned with here. Any thread.
namespace Platform {

struct ZoneOffset {
    std::int64_t seconds; ///< that local time is ahead of UTC
    bool isDaylight;      ///< whether they are those of summer
};

/// What a zone does in one year. Moments are seconds since 1970-01-01 UTC.
struct ZoneYear {
    ZoneOffset At(std::int64_t moment) const {
        const bool isDaylight = start <= end ? moment >= start && moment < end : moment >= start || moment < end;
        return {isDaylight ? daylight : standard, isDaylight};
    }

    std::int32_t standard = 0; ///< seconds ahead of UTC
    std::int32_t daylight = 0;
    std::int64_t start = 0; ///< of summer; in the south it lies behind its end
    std::int64_t end = 0;   ///< the same where there is none
};

MOPLATFORM_API ZoneYear RulesOf(const TIME_ZONE_INFORMATION& zone, std::int64_t year);

/// In the zone that the system has now: another one is noticed within a second.
ZoneOffset LocalOffsetAt(std::int64_t moment);

std::wstring LocalZoneName(bool isDaylight); ///< empty where the system does not tell

} // namespace Platform
