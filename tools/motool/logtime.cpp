#include "logtime.h"

#include <array>
#include <charconv>
#include <cstdint>

using namespace KELD;

namespace Motool {

namespace {

/// Takes numbers and what stands between them off a text.
class Reader {
public:
    explicit Reader(std::string_view text) : m_text(text) {}

    bool Number(std::size_t fewest, std::size_t most, int& number) {
        std::size_t digits = 0;
        while (digits < m_text.size() && m_text[digits] >= '0' && m_text[digits] <= '9')
            ++digits;
        if (digits < fewest || digits > most)
            return false;
        std::from_chars(m_text.data(), m_text.data() + digits, number);
        m_text.remove_prefix(digits);
        return true;
    }
    bool Skip(std::string_view any) {
        if (m_text.empty() || any.find(m_text.front()) == std::string_view::npos)
            return false;
        m_text.remove_prefix(1);
        return true;
    }
    bool IsAtEnd() const { return m_text.empty(); }
    std::string_view Rest() const { return m_text; }

private:
    std::string_view m_text;
};

bool ParseAgo(std::string_view text, KeldTime now, KeldTime& time) {
    Reader reader(text);
    int count = 0;
    if (!reader.Number(1, 7, count) || reader.Rest().size() != 1)
        return false;
    std::int64_t unit = 0;
    switch (reader.Rest().front()) {
    case 's': unit = 1; break;
    case 'm': unit = 60; break;
    case 'h': unit = 3600; break;
    case 'd': unit = 86400; break;
    default: return false;
    }
    time = KeldTime(now.GetTime() - count * unit);
    return true;
}

// Hours, minutes and seconds, as far as they are told; the others stay.
bool ParseClock(Reader& reader, std::array<int, 3>& clock) {
    if (!reader.Number(1, 2, clock[0]) || !reader.Skip(":") || !reader.Number(2, 2, clock[1]))
        return false;
    const bool hasSeconds = reader.Skip(":");
    return (!hasSeconds || reader.Number(2, 2, clock[2])) && reader.IsAtEnd() && clock[0] < 24 && clock[1] < 60 &&
           clock[2] < 60;
}

} // namespace

bool ParseTime(std::string_view text, KeldTime now, bool isEnd, KeldTime& time) {
    if (text == "now" || ParseAgo(text, now, time)) {
        time = text == "now" ? now : time;
        return true;
    }
    std::array<int, 3> day = {now.GetYear(), now.GetMonth(), now.GetDay()};
    std::array<int, 3> clock = {isEnd ? 23 : 0, isEnd ? 59 : 0, isEnd ? 59 : 0};
    Reader date(text);
    const bool hasDate = date.Number(4, 4, day[0]) && date.Skip("-") && date.Number(1, 2, day[1]) && date.Skip("-") &&
                         date.Number(1, 2, day[2]);
    Reader rest(hasDate ? date.Rest() : text);
    if (hasDate && !rest.IsAtEnd() && !rest.Skip(" T_"))
        return false;
    if ((!hasDate || !rest.IsAtEnd()) && !ParseClock(rest, clock))
        return false;
    if (!hasDate)
        day = {now.GetYear(), now.GetMonth(), now.GetDay()};
    const KeldTime parsed(day[0], day[1], day[2], clock[0], clock[1], clock[2]);
    // The calendar counts on: the 31st of November would be a day in December.
    if (parsed.GetMonth() != day[1] || parsed.GetDay() != day[2])
        return false;
    time = parsed;
    return true;
}

} // namespace Motool
