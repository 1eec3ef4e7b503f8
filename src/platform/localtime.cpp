#include "platform/localtime.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace Platform {

namespace {

// Writes as long as there is room.
class TimeWriter {
public:
    TimeWriter(char* buffer, std::size_t size, const std::tm& time, bool isUtc)
        : m_at(buffer), m_end(buffer + size), m_begin(buffer), m_time(time), m_isUtc(isUtc) {}

    // 0 when there was no room for all of it.
    std::size_t Write(std::string_view format) {
        Format(format);
        Put('\0');
        return m_fits ? static_cast<std::size_t>(m_at - m_begin) - 1 : 0;
    }

private:
    void Put(char c) {
        m_fits = m_fits && m_at != m_end;
        if (m_fits)
            *m_at++ = c;
    }

    void Number(std::int64_t value, int digits = 1, char fill = '0') {
        char text[20];
        const char* const end = std::to_chars(text, text + sizeof(text), value).ptr;
        for (auto length = end - text; length < digits; ++length)
            Put(fill);
        for (const char* digit = text; digit != end; ++digit)
            Put(*digit);
    }

    void Format(std::string_view format) {
        for (std::size_t i = 0; i < format.size() && m_fits; ++i) {
            if (format[i] != '%') {
                Put(format[i]);
                continue;
            }
            if (i + 1 < format.size() && WriteConversion(format[i + 1])) {
                ++i;
                continue;
            }
            // Flags, a width and a modifier, where the system knows such.
            const std::size_t letter =
                std::min(format.find_first_not_of("_-0^#+123456789EO", i + 1), format.size() - 1);
            LeaveToTheSystem(format.substr(i, letter - i + 1));
            i = letter;
        }
    }

    void LeaveToTheSystem(std::string_view conversion) {
        std::size_t length = 0;
        m_fits = FormatBySystem(m_at, static_cast<std::size_t>(m_end - m_at), conversion, m_time, m_isUtc, length);
        if (m_fits)
            m_at += length;
    }

    bool WriteConversion(char conversion) {
        const std::int64_t year = m_time.tm_year + std::int64_t{1900};
        const auto isoWeek = [&] { return IsoWeek(year, m_time.tm_yday, m_time.tm_wday); };
        switch (conversion) {
        case 'Y': Number(year); break;
        case 'C': Number(FloorDiv(year, 100)); break;
        case 'y': Number(YearInCentury(year), 2); break;
        case 'G': Number(isoWeek().year); break;
        case 'g': Number(YearInCentury(isoWeek().year), 2); break;
        case 'V': Number(isoWeek().week, 2); break;
        case 'U': Number(WeekOfYear(m_time.tm_yday, m_time.tm_wday), 2); break;
        case 'W': Number(WeekOfYear(m_time.tm_yday, SinceMonday(m_time.tm_wday)), 2); break;
        case 'm': Number(m_time.tm_mon + 1, 2); break;
        case 'd': Number(m_time.tm_mday, 2); break;
        case 'e': Number(m_time.tm_mday, 2, ' '); break;
        case 'j': Number(m_time.tm_yday + 1, 3); break;
        case 'u': Number(SinceMonday(m_time.tm_wday) + 1); break;
        case 'w': Number(m_time.tm_wday); break;
        case 'H': Number(m_time.tm_hour, 2); break;
        case 'I': Number((m_time.tm_hour + 11) % 12 + 1, 2); break;
        case 'M': Number(m_time.tm_min, 2); break;
        case 'S': Number(m_time.tm_sec, 2); break;
        case 'D':
        case 'F':
        case 'T':
        case 'R': Format(ComposedTimeFormat(conversion)); break;
        case 'n': Put('\n'); break;
        case 't': Put('\t'); break;
        case '%': Put('%'); break;
        default: return false;
        }
        return true;
    }

    char* m_at;
    char* const m_end;
    const char* const m_begin;
    const std::tm& m_time;
    const bool m_isUtc;
    bool m_fits = true;
};

} // namespace

std::size_t FormatTime(char* buffer, std::size_t size, const char* format, const std::tm& time, bool isUtc) {
    return TimeWriter(buffer, size, time, isUtc).Write(format);
}

} // namespace Platform
