#include "platform/win32/timezone.h"

#include <array>
#include <atomic>

#include "platform/calendar.h"
#include "platform/thread.h"

namespace Platform {

namespace {

constexpr std::int64_t SecondsPerDay = 86400;

// ---- A year's rules

bool IsDate(const SYSTEMTIME& date) {
    return date.wMonth >= 1 && date.wMonth <= 12 && date.wDay >= 1;
}

// The local time of a change, as if it were UTC.
std::int64_t WallOf(const SYSTEMTIME& date, std::int64_t year) {
    std::int64_t day = date.wDay;
    if (date.wYear == 0) { // a day of the week, counted in its month; the fifth is the last
        const int first = WeekDay(DayNumber(year, date.wMonth, 1));
        day = 1 + (date.wDayOfWeek + 7 - first) % 7 + 7 * (day - 1);
        while (day > DaysOfMonth(year, date.wMonth))
            day -= 7;
    }
    // Some changes are told as the last millisecond of a day.
    return DayNumber(year, date.wMonth, day) * SecondsPerDay + date.wHour * 3600 + date.wMinute * 60 + date.wSecond +
           (date.wMilliseconds > 0 ? 1 : 0);
}

// ---- What is known of years

struct Zone {
    DYNAMIC_TIME_ZONE_INFORMATION information = {};
    std::uint32_t mark = 0; ///< tells zones apart
};

void Mix(std::uint32_t& mark, std::uint32_t value) {
    mark = (mark ^ value) * 16777619;
}

Zone AskForZone() {
    Zone zone;
    GetDynamicTimeZoneInformation(&zone.information); // on failure it is UTC
    const DYNAMIC_TIME_ZONE_INFORMATION& told = zone.information;
    zone.mark = 2166136261;
    for (const wchar_t unit : told.TimeZoneKeyName) {
        if (unit == L'\0')
            break;
        Mix(zone.mark, unit);
    }
    for (const LONG bias : {told.Bias, told.StandardBias, told.DaylightBias})
        Mix(zone.mark, static_cast<std::uint32_t>(bias));
    for (const SYSTEMTIME& date : {told.StandardDate, told.DaylightDate}) {
        for (const WORD part : {date.wYear, date.wMonth, date.wDay, date.wDayOfWeek, date.wHour, date.wMinute})
            Mix(zone.mark, part);
    }
    Mix(zone.mark, told.DynamicDaylightTimeDisabled);
    return zone;
}

// Asked for once in a while: the question takes longer than the reckoning.
std::uint32_t CurrentMark() {
    static std::atomic<std::uint32_t> s_period{0};
    static std::atomic<std::uint32_t> s_mark{0};
    const auto period = static_cast<std::uint32_t>(GetTickCount64() / 1000 + 1);
    if (s_period.load(std::memory_order_acquire) != period) {
        s_mark.store(AskForZone().mark, std::memory_order_relaxed);
        s_period.store(period, std::memory_order_release);
    }
    return s_mark.load(std::memory_order_relaxed);
}

/// What was last asked for of the years that share a place. Readers never wait: what is being written counts as
/// unknown.
class KnownYear {
public:
    bool Read(std::uint32_t mark, std::int64_t year, ZoneYear& rules) const {
        const std::uint32_t before = m_version.load(std::memory_order_acquire);
        const bool isIt = m_mark.load(std::memory_order_relaxed) == mark &&
                          m_year.load(std::memory_order_relaxed) == static_cast<std::int32_t>(year);
        const std::int64_t newYear = DayNumber(year, 1, 1) * SecondsPerDay;
        rules.standard = m_standard.load(std::memory_order_relaxed);
        rules.daylight = m_daylight.load(std::memory_order_relaxed);
        rules.start = newYear + m_start.load(std::memory_order_relaxed);
        rules.end = newYear + m_end.load(std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_acquire);
        return isIt && before % 2 == 0 && m_version.load(std::memory_order_relaxed) == before;
    }

    void Write(std::uint32_t mark, std::int64_t year, const ZoneYear& rules) {
        const TerminationShield shield; // half written it would stay so
        std::uint32_t version = m_version.load(std::memory_order_relaxed);
        if (version % 2 != 0 || !m_version.compare_exchange_strong(version, version + 1, std::memory_order_acquire))
            return; // another one knows it, too
        std::atomic_thread_fence(std::memory_order_release);
        const std::int64_t newYear = DayNumber(year, 1, 1) * SecondsPerDay;
        m_mark.store(mark, std::memory_order_relaxed);
        m_year.store(static_cast<std::int32_t>(year), std::memory_order_relaxed);
        m_standard.store(rules.standard, std::memory_order_relaxed);
        m_daylight.store(rules.daylight, std::memory_order_relaxed);
        m_start.store(static_cast<std::int32_t>(rules.start - newYear), std::memory_order_relaxed);
        m_end.store(static_cast<std::int32_t>(rules.end - newYear), std::memory_order_relaxed);
        m_version.store(version + 2, std::memory_order_release);
    }

private:
    std::atomic<std::uint32_t> m_version{0}; ///< odd while it is written
    std::atomic<std::uint32_t> m_mark{0};
    std::atomic<std::int32_t> m_year{0};
    std::atomic<std::int32_t> m_standard{0};
    std::atomic<std::int32_t> m_daylight{0};
    std::atomic<std::int32_t> m_start{0}; ///< in seconds of the year
    std::atomic<std::int32_t> m_end{0};
};

// Of a year that the system has rules for.
ZoneYear LocalRules(std::int64_t year) {
    constexpr std::size_t Places = 512;
    static std::array<KnownYear, Places> s_years;
    KnownYear& known = s_years[static_cast<std::size_t>(year) % Places];
    ZoneYear rules;
    if (known.Read(CurrentMark(), year, rules))
        return rules;
    Zone zone = AskForZone();
    TIME_ZONE_INFORMATION ofYear = {};
    if (GetTimeZoneInformationForYear(static_cast<USHORT>(year), &zone.information, &ofYear) == 0)
        ofYear.Bias = zone.information.Bias;
    rules = RulesOf(ofYear, year);
    known.Write(zone.mark, year, rules);
    return rules;
}

} // namespace

ZoneYear RulesOf(const TIME_ZONE_INFORMATION& zone, std::int64_t year) {
    ZoneYear rules;
    const bool hasSummer = IsDate(zone.DaylightDate) && IsDate(zone.StandardDate);
    rules.standard = static_cast<std::int32_t>(-60 * (zone.Bias + (hasSummer ? zone.StandardBias : 0)));
    rules.daylight = static_cast<std::int32_t>(-60 * (zone.Bias + zone.DaylightBias));
    if (hasSummer) {
        rules.start = WallOf(zone.DaylightDate, year) - rules.standard;
        rules.end = WallOf(zone.StandardDate, year) - rules.daylight;
    }
    return rules;
}

ZoneOffset LocalOffsetAt(std::int64_t moment) {
    std::int64_t days = FloorDiv(moment, SecondsPerDay);
    const std::int64_t time = moment - days * SecondsPerDay;
    std::int64_t year = DateOfDay(days).year;
    // The system knows rules for the years from 1601 to 30827; others have those of a year of the same form, for the
    // calendar repeats itself.
    if (year < 1602 || year > 30800) {
        const std::int64_t like = 2000 + (year % 400 + 400) % 400;
        days += DayNumber(like, 1, 1) - DayNumber(year, 1, 1);
        year = like;
    }
    moment = days * SecondsPerDay + time;
    const ZoneYear rules = LocalRules(year);
    const std::int64_t localYear = DateOfDay(FloorDiv(moment + rules.standard, SecondsPerDay)).year;
    return localYear == year ? rules.At(moment) : LocalRules(localYear).At(moment);
}

std::wstring LocalZoneName(bool isDaylight) {
    TIME_ZONE_INFORMATION zone = {};
    if (GetTimeZoneInformation(&zone) == TIME_ZONE_ID_INVALID)
        return std::wstring();
    return isDaylight ? zone.DaylightName : zone.StandardName;
}

} // namespace Platform
