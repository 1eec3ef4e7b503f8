#pragma once

#include <cstddef>
#include <ctime>
#include <string_view>

namespace KELD {

/// Reads a date and time as KeldTime::Format writes it in English. What the format does not tell is 00:00:00 and
/// January, in 1900.
class TimeReader {
public:
    explicit TimeReader(std::string_view text) : m_text(text) {}

    /// False when the text is none, or does not tell a day that there is.
    bool Read(std::string_view format, std::tm& time);
    /// What is behind it.
    std::string_view Rest() const { return m_text; }

private:
    bool ReadFormat(std::string_view format);
    bool ReadConversion(char conversion, bool isOpen);
    bool ReadNumber(int& value, int least, int most, int digits);
    bool ReadYear(int& year, bool isOpen);
    template <std::size_t Count>
    bool ReadName(const std::string_view (&names)[Count], int count, int& index);
    bool FindDay(std::tm& time) const;
    void SkipBlanks();
    bool TakeStart(std::string_view start); // in any case

    static constexpr int Untold = -1;

    std::string_view m_text;
    int m_year = 1900;
    int m_century = Untold;
    int m_inCentury = Untold;
    int m_month = 1;
    int m_day = Untold;
    int m_yearDay = Untold;
    int m_isoYear = 0;
    int m_isoWeek = Untold;
    int m_weekDay = Untold; // 1 is Monday, 7 Sunday
    int m_hour = Untold;
    int m_hour12 = 0;
    int m_isAfternoon = 0;
    int m_minute = 0;
    int m_second = 0;
};

} // namespace KELD
