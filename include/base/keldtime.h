#pragma once

#include <cstdint>

#include "base/keldmbstring.h"
#include "base/mobaseexport.h"

namespace KELD {

/// A second in time, counted from 1970-01-01 00:00:00 UTC, with its local calendar form. Years reach 2147 million in
/// both directions: times beyond read as the last second of those. Any thread.
class MOBASE_API KeldTime {
public:
    KeldTime() = default;                                           ///< 1970-01-01 00:00:00 UTC
    explicit KeldTime(std::int64_t seconds) : m_seconds(seconds) {} ///< since 1970-01-01 UTC
    /// Local time. Values beyond their range count on, so that day 0 is the last of the month before. A time
    /// that the calendar cannot hold gives that of the default constructor.
    KeldTime(int year, int month, int day, int hour, int minute, int second);

    static KeldTime GetCurrentTime(); ///< now, without the fraction of the second

    /// The millisecond clock: counts from the first question on, and is not moved when somebody sets the
    /// system's time.
    static std::int64_t GetMilliseconds();

    std::int64_t GetTime() const { return m_seconds; } ///< seconds since 1970-01-01 UTC

    int GetYear() const;      ///< of the local time, as all of these
    int GetMonth() const;     ///< 1 to 12
    int GetDay() const;       ///< 1 to 31
    int GetHour() const;      ///< 0 to 23
    int GetMinute() const;    ///< 0 to 59
    int GetSecond() const;    ///< 0 to 59
    int GetDayOfWeek() const; ///< 1 (Sunday) to 7

    /// The local time as strftime writes it. A result of more than 1023 bytes gives an empty text.
    KeldMBString Format(const KeldMBString& format) const;

    /// Reads at the start of `text` what Format wrote with the same format, with names in English; the number of bytes
    /// read. 0, and the time left as it was, when the text is none, names a day that its month lacks, or the format
    /// does not tell a time.
    int Parse(const KeldMBString& format, const KeldMBString& text);

    friend bool operator==(KeldTime a, KeldTime b) { return a.m_seconds == b.m_seconds; }
    friend bool operator!=(KeldTime a, KeldTime b) { return a.m_seconds != b.m_seconds; }
    friend bool operator<(KeldTime a, KeldTime b) { return a.m_seconds < b.m_seconds; }
    friend bool operator>(KeldTime a, KeldTime b) { return a.m_seconds > b.m_seconds; }
    friend bool operator<=(KeldTime a, KeldTime b) { return a.m_seconds <= b.m_seconds; }
    friend bool operator>=(KeldTime a, KeldTime b) { return a.m_seconds >= b.m_seconds; }

private:
    std::int64_t m_seconds = 0;
};

} // namespace KELD
