#include "base/timereader.h"

#include <algorithm>
#include <limits>

#include "base/timetext.h"
#include "platform/calendar.h"

namespace KELD {

namespace {

// In full and in short.
constexpr std::string_view Months[] = {"January",   "February", "March",    "April",    "May", "June", "July", "August",
                                       "September", "October",  "November", "December", "Jan", "Feb",  "Mar",  "Apr",
                                       "May",       "Jun",      "Jul",      "Aug",      "Sep", "Oct",  "Nov",  "Dec"};
constexpr std::string_view WeekDays[] = {"Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday", "Sunday",
                                         "Mon",    "Tue",     "Wed",       "Thu",      "Fri",    "Sat",      "Sun"};
constexpr std::string_view Halves[] = {"AM", "PM"};

bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

} // namespace

bool TimeReader::Read(std::string_view format, std::tm& time) {
    if (!ReadFormat(format) || !FindDay(time))
        return false;
    time.tm_hour = m_hour != Untold ? m_hour : m_hour12 % 12 + 12 * m_isAfternoon;
    time.tm_min = m_minute;
    time.tm_sec = m_second;
    return true;
}

void TimeReader::SkipBlanks() {
    while (!m_text.empty() && IsBlank(m_text[0]))
        m_text.remove_prefix(1);
}

bool TimeReader::TakeStart(std::string_view start) {
    const bool isStart = StartsWithAnyCase(m_text, start);
    m_text.remove_prefix(isStart ? start.size() : 0);
    return isStart;
}

bool TimeReader::ReadFormat(std::string_view format) {
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (IsBlank(format[i])) {
            SkipBlanks();
        } else if (format[i] != '%') {
            if (!TakeStart(format.substr(i, 1)))
                return false;
        } else {
            ++i;
            const auto isNumber = [](char c) { return IsDigit(c) || c == '%'; };
            if (i == format.size() || !ReadConversion(format[i], i + 1 == format.size() || !isNumber(format[i + 1])))
                return false;
        }
    }
    return true;
}

bool TimeReader::ReadNumber(int& value, int least, int most, int digits) {
    std::int64_t number = 0;
    if (!TakeDigits(m_text, digits, number) || number < least || number > most)
        return false;
    value = static_cast<int>(number);
    return true;
}

// A year of more than four digits, or one before the first, is one where no other number can follow.
bool TimeReader::ReadYear(int& year, bool isOpen) {
    constexpr int Longest = 10;
    const bool isNegative = isOpen && !m_text.empty() && m_text[0] == '-';
    m_text.remove_prefix(isNegative ? 1 : 0);
    std::int64_t number = 0;
    if (!TakeDigits(m_text, isOpen ? Longest : 4, number))
        return false;
    number = isNegative ? -number : number;
    constexpr int Earliest = std::numeric_limits<int>::min() + 1900;
    if (number < Earliest || number > std::numeric_limits<int>::max())
        return false;
    year = static_cast<int>(number);
    return true;
}

template <std::size_t Count>
bool TimeReader::ReadName(const std::string_view (&names)[Count], int count, int& index) {
    std::size_t found = 0;
    if (!TakeName(m_text, names, found))
        return false;
    index = static_cast<int>(found) % count;
    return true;
}

bool TimeReader::ReadConversion(char conversion, bool isOpen) {
    switch (conversion) {
    case 'Y': m_inCentury = m_century = Untold; return ReadYear(m_year, isOpen);
    case 'G': return ReadYear(m_isoYear, isOpen);
    case 'C': return ReadNumber(m_century, 0, 99, 2);
    case 'y': return ReadNumber(m_inCentury, 0, 99, 2);
    case 'm': return ReadNumber(m_month, 1, 12, 2);
    case 'B':
    case 'b':
    case 'h': return ReadName(Months, 12, m_month) && ++m_month > 0;
    case 'e':
    case 'd': SkipBlanks(); return ReadNumber(m_day, 1, 31, 2);
    case 'j': return ReadNumber(m_yearDay, 1, 366, 3);
    case 'V': return ReadNumber(m_isoWeek, 1, 53, 2);
    case 'A':
    case 'a': return ReadName(WeekDays, 7, m_weekDay) && ++m_weekDay > 0;
    case 'u': return ReadNumber(m_weekDay, 1, 7, 1);
    case 'w':
        if (!ReadNumber(m_weekDay, 0, 6, 1))
            return false;
        m_weekDay = m_weekDay == 0 ? 7 : m_weekDay;
        return true;
    case 'H': return ReadNumber(m_hour, 0, 23, 2);
    case 'I': return ReadNumber(m_hour12, 1, 12, 2);
    case 'p': return ReadName(Halves, 2, m_isAfternoon);
    case 'M': return ReadNumber(m_minute, 0, 59, 2);
    case 'S': return ReadNumber(m_second, 0, 60, 2);
    case 'n':
    case 't': SkipBlanks(); return true;
    case '%': return TakeStart("%");
    default: {
        const std::string_view composed = Platform::ComposedTimeFormat(conversion);
        return !composed.empty() && ReadFormat(composed);
    }
    }
}

// By the month, the day of the year or the week.
bool TimeReader::FindDay(std::tm& time) const {
    std::int64_t year = m_year;
    if (m_century != Untold)
        year = m_century * 100 + std::max(m_inCentury, 0);
    else if (m_inCentury != Untold)
        year = Platform::YearOfTwoDigits(m_inCentury);
    if (m_day != Untold && m_day > Platform::DaysOfMonth(year, m_month))
        return false;
    time.tm_mon = m_month - 1;
    time.tm_mday = m_day;
    if (m_day == Untold && m_yearDay != Untold) {
        if (m_yearDay > Platform::DaysOfYear(year))
            return false;
        time.tm_mon = 0;
        time.tm_mday = m_yearDay;
    } else if (m_day == Untold && m_isoWeek != Untold && m_weekDay != Untold) {
        year = m_isoYear;
        if (m_isoWeek > Platform::IsoWeeksOfYear(year))
            return false;
        time.tm_mon = 0;
        time.tm_mday = Platform::FirstIsoMonday(year) + (m_isoWeek - 1) * 7 + m_weekDay - 1;
    } else if (m_day == Untold) {
        return false;
    }
    time.tm_year = static_cast<int>(year - 1900);
    return true;
}

} // namespace KELD
