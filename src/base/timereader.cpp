#include "base/timereader.h"

#include <algorithm>
#include <limits>

#include "base/asciicase.h"
#include "platform/localtime.h"

namespace KELD {

namespace {

constexpr std::string_view Months[] = {"January", "February", "March",     "April",   "May",      "June",
                                       "July",    "August",   "September", "October", "November", "December"};
constexpr std::string_view WeekDays[] = {"Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday", "Sunday"};
constexpr std::string_view Halves[] = {"AM", "PM"};
constexpr std::size_t ShortName = 3;

bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

char Lower(char c) {
    return static_cast<char>(ToLowerAscii(static_cast<unsigned char>(c)));
}

int DaysIn(int month, std::int64_t year) {
    constexpr int Days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return Days[month - 1] + (month == 2 && Platform::IsLeapYear(year) ? 1 : 0);
}

// 0 is Sunday. By the 400 years after which all comes again.
int WeekDayOfNewYear(std::int64_t year) {
    const std::int64_t before = (year % 400 + 400 + 399) % 400; // years since one that comes behind a leap year
    return static_cast<int>((1 + before * 365 + before / 4 - before / 100) % 7);
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
    const auto isSame = [](char a, char b) { return Lower(a) == Lower(b); };
    if (m_text.size() < start.size() || !std::equal(start.begin(), start.end(), m_text.begin(), isSame))
        return false;
    m_text.remove_prefix(start.size());
    return true;
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
    std::size_t count = 0;
    int number = 0;
    for (; count < m_text.size() && count < static_cast<std::size_t>(digits) && IsDigit(m_text[count]); ++count)
        number = number * 10 + (m_text[count] - '0');
    if (count == 0 || number < least || number > most)
        return false;
    m_text.remove_prefix(count);
    value = number;
    return true;
}

// A year of more than four digits, or one before the first, is one where no other number can follow.
bool TimeReader::ReadYear(int& year, bool isOpen) {
    constexpr std::size_t Longest = 10;
    const bool isNegative = isOpen && !m_text.empty() && m_text[0] == '-';
    const std::string_view text = m_text.substr(isNegative ? 1 : 0);
    std::size_t count = 0;
    std::int64_t number = 0;
    for (; count < text.size() && count < (isOpen ? Longest : 4) && IsDigit(text[count]); ++count)
        number = number * 10 + (text[count] - '0');
    if (isNegative)
        number = -number;
    constexpr int Earliest = std::numeric_limits<int>::min() + 1900;
    if (count == 0 || number < Earliest || number > std::numeric_limits<int>::max())
        return false;
    m_text = text.substr(count);
    year = static_cast<int>(number);
    return true;
}

template <std::size_t Count>
bool TimeReader::ReadName(const std::string_view (&names)[Count], int& index) {
    for (std::size_t i = 0; i < Count; ++i) {
        for (const std::string_view name : {names[i], names[i].substr(0, ShortName)}) {
            if (TakeStart(name)) {
                index = static_cast<int>(i);
                return true;
            }
        }
    }
    return false;
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
    case 'h': return ReadName(Months, m_month) && ++m_month > 0;
    case 'e':
    case 'd': SkipBlanks(); return ReadNumber(m_day, 1, 31, 2);
    case 'j': return ReadNumber(m_yearDay, 1, 366, 3);
    case 'V': return ReadNumber(m_isoWeek, 1, 53, 2);
    case 'A':
    case 'a': return ReadName(WeekDays, m_weekDay) && ++m_weekDay > 0;
    case 'u': return ReadNumber(m_weekDay, 1, 7, 1);
    case 'w':
        if (!ReadNumber(m_weekDay, 0, 6, 1))
            return false;
        m_weekDay = m_weekDay == 0 ? 7 : m_weekDay;
        return true;
    case 'H': return ReadNumber(m_hour, 0, 23, 2);
    case 'I': return ReadNumber(m_hour12, 1, 12, 2);
    case 'p': return ReadName(Halves, m_isAfternoon);
    case 'M': return ReadNumber(m_minute, 0, 59, 2);
    case 'S': return ReadNumber(m_second, 0, 60, 2);
    case 'D':
    case 'x': return ReadFormat("%m/%d/%y");
    case 'F': return ReadFormat("%Y-%m-%d");
    case 'T':
    case 'X': return ReadFormat("%H:%M:%S");
    case 'R': return ReadFormat("%H:%M");
    case 'r': return ReadFormat("%I:%M:%S %p");
    case 'c': return ReadFormat("%a %b %d %H:%M:%S %Y");
    case 'n':
    case 't': SkipBlanks(); return true;
    case '%': return TakeStart("%");
    default: return false;
    }
}

// By the month, the day of the year or the week.
bool TimeReader::FindDay(std::tm& time) const {
    std::int64_t year = m_year;
    if (m_century != Untold)
        year = m_century * 100 + std::max(m_inCentury, 0);
    else if (m_inCentury != Untold)
        year = m_inCentury + (m_inCentury < 69 ? 2000 : 1900);
    if (m_day != Untold && m_day > DaysIn(m_month, year))
        return false;
    time.tm_mon = m_month - 1;
    time.tm_mday = m_day;
    if (m_day == Untold && m_yearDay != Untold) {
        if (m_yearDay > (Platform::IsLeapYear(year) ? 366 : 365))
            return false;
        time.tm_mon = 0;
        time.tm_mday = m_yearDay;
    } else if (m_day == Untold && m_isoWeek != Untold && m_weekDay != Untold) {
        year = m_isoYear;
        const int newYear = WeekDayOfNewYear(year);
        const bool isLong = newYear == 4 || (newYear == 3 && Platform::IsLeapYear(year));
        if (m_isoWeek == 53 && !isLong)
            return false;
        // The first week is that of January the 4th.
        time.tm_mon = 0;
        time.tm_mday = 4 - (newYear + 2) % 7 + (m_isoWeek - 1) * 7 + m_weekDay - 1;
    } else if (m_day == Untold) {
        return false;
    }
    time.tm_year = static_cast<int>(year - 1900);
    return true;
}

} // namespace KELD
