#include "toolkit/log/logdatetime.h"

#include <algorithm>
#include <ctime>
#include <limits>

#include "base/keldtime.h"
#include "base/timetext.h"
#include "platform/localtime.h"
#include "toolkit/log/logclock.h"

namespace Qzc {

namespace {

constexpr std::int64_t DaySeconds = 86400;
constexpr std::int64_t NoDay = std::numeric_limits<std::int64_t>::min();

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// A day with all that a date may tell of it; made as the first of a year.
struct Date {
    explicit Date(std::int64_t ofYear)
        : year(ofYear), day(Platform::DayNumber(ofYear, 1, 1)), weekDay(Platform::WeekDay(day)) {}

    void Next() {
        ++day;
        ++yearDay;
        weekDay = (weekDay + 1) % 7;
        if (++monthDay > Platform::DaysOfMonth(year, month)) {
            monthDay = 1;
            if (++month > 12) {
                month = 1;
                yearDay = 0;
                ++year;
            }
        }
    }

    std::int64_t year;
    std::int64_t day; // since 1970-01-01
    int month = 1;
    int monthDay = 1;
    int yearDay = 0;
    int weekDay;
};

// How far local time is ahead at a second.
std::int64_t LocalOffset(std::int64_t seconds) {
    std::tm local = {};
    if (!Platform::LocalTime(seconds, local))
        return 0;
    const std::int64_t day = Platform::DayNumber(std::int64_t{1900} + local.tm_year, local.tm_mon + 1, local.tm_mday);
    return day * DaySeconds + std::int64_t{local.tm_hour} * 3600 + std::int64_t{local.tm_min} * 60 + local.tm_sec -
           seconds;
}

KeldMBString ZoneAt(std::int64_t seconds) {
    return KeldTime(seconds).Format("%Z");
}

// Of winter and summer, as the system writes them.
std::vector<std::string> ZoneNames() {
    std::vector<std::string> names;
    for (const int isDaylight : {0, 1}) {
        std::tm time = {};
        time.tm_mday = 1;
        time.tm_isdst = isDaylight;
        char name[256];
        names.emplace_back(name, Platform::FormatTime(name, sizeof(name), "%Z", time));
    }
    return names;
}

// Also a negative one, of as many digits behind the sign.
bool TakeSigned(std::string_view& text, int digits, std::int64_t& value) {
    const bool isNegative = !text.empty() && text[0] == '-';
    std::string_view rest = text.substr(isNegative ? 1 : 0);
    if (!TakeDigits(rest, digits, value))
        return false;
    value = isNegative ? -value : value;
    text = rest;
    return true;
}

// +0530 is 19800.
bool TakeOffset(std::string_view& text, std::int64_t& seconds) {
    if (text.size() < 5 || (text[0] != '+' && text[0] != '-') || !std::all_of(&text[1], &text[5], IsDigit))
        return false;
    const auto digit = [&](std::size_t i) { return std::int64_t{text[i]} - '0'; };
    seconds = (digit(1) * 10 + digit(2)) * 3600 + (digit(3) * 10 + digit(4)) * 60;
    if (text[0] == '-')
        seconds = -seconds;
    text.remove_prefix(5);
    return true;
}

// Letters, or a sign and digits where a zone has no name; or one that goes on, as one of several words does.
bool TakeZoneName(std::string_view& text, const std::vector<std::string>& names, std::string_view& name) {
    const bool isNumber = !text.empty() && (text[0] == '+' || text[0] == '-');
    std::size_t end = isNumber ? 1 : 0;
    while (end < text.size() && (isNumber ? IsDigit(text[end]) : IsLetter(text[end])))
        ++end;
    end = end > (isNumber ? 1U : 0U) ? end : 0;
    for (const std::string& known : names) {
        if (known.size() > end && text.substr(0, known.size()) == known)
            end = known.size();
    }
    name = text.substr(0, end);
    text.remove_prefix(end);
    return end > 0;
}

} // namespace

LogDateTimeReader::LogDateTimeReader(const KeldMBString& format, bool utc) : m_utc(utc), m_plainDay(NoDay) {
    Compile(format.Cstr());
    if (m_pieces.empty())
        return;
    const Piece& first = m_pieces[0];
    if (first.form == Form::Number && !first.padded && first.field != Epoch)
        m_start = '0';
    else if (!first.literal.empty() && !IsDigit(first.literal[0]))
        m_start = first.literal[0];
}

void LogDateTimeReader::AddLiteral(std::string_view text) {
    if (m_pieces.empty() || m_pieces.back().form != Form::Text || m_pieces.back().field != Literal)
        m_pieces.emplace_back();
    m_pieces.back().literal.append(text);
}

void LogDateTimeReader::AddNumber(Field field, int digits, bool padded) {
    Piece piece;
    piece.field = field;
    piece.form = Form::Number;
    piece.padded = padded;
    piece.digits = digits;
    m_pieces.push_back(std::move(piece));
}

void LogDateTimeReader::AddNames(Field field, char conversion, bool padded) {
    const int count = field == Month ? 12 : field == WeekDay ? 7 : 2;
    Piece piece;
    piece.field = field;
    piece.form = Form::Name;
    piece.padded = padded;
    for (int i = 0; i < count; ++i) {
        std::tm time = {};
        time.tm_mday = 1;
        time.tm_mon = field == Month ? i : 0;
        time.tm_wday = field == WeekDay ? i : 0;
        time.tm_hour = field == Afternoon ? 12 * i : 0;
        const char format[] = {'%', conversion, '\0'};
        char name[128];
        piece.names.emplace_back(name, Platform::FormatTime(name, sizeof(name), format, time));
    }
    m_pieces.push_back(std::move(piece));
}

void LogDateTimeReader::Compile(std::string_view format) {
    while (!format.empty()) {
        const std::size_t percent = std::min(format.find('%'), format.size());
        if (percent != 0) {
            AddLiteral(format.substr(0, percent));
            format.remove_prefix(percent);
            continue;
        }
        // What the C library takes between the percent sign and the letter: how to pad and to how many characters, and
        // another form of digits or years, which CanRead has to see is none.
        format.remove_prefix(1);
        bool padded = false;
        for (; !format.empty() && std::string_view("_-0^#+").find(format[0]) != std::string_view::npos;
             format.remove_prefix(1))
            padded = padded || format[0] == '_';
        int width = 0;
        for (; !format.empty() && IsDigit(format[0]); format.remove_prefix(1))
            width = std::min(width * 10 + (format[0] - '0'), 1024);
        if (!format.empty() && (format[0] == 'E' || format[0] == 'O'))
            format.remove_prefix(1);
        if (format.empty()) {
            m_readable = false;
            return;
        }
        CompileConversion(format[0], padded || width > 0, width);
        format.remove_prefix(1);
    }
}

void LogDateTimeReader::CompileConversion(char conversion, bool padded, int width) {
    constexpr int LongestEpoch = 18;
    const auto number = [&](Field field, int digits) {
        AddNumber(field, std::min(std::max(digits, width), LongestEpoch), padded);
    };
    switch (conversion) {
    case 'Y': number(Year, 4); break;
    case 'y': number(ShortYear, 2); break;
    case 'C': number(Century, 2); break;
    case 'G': number(IsoYear, 4); break;
    case 'g': number(IsoShortYear, 2); break;
    case 'm': number(Month, 2); break;
    case 'd': number(Day, 2); break;
    case 'e': padded = true, number(Day, 2); break;
    case 'j': number(YearDay, 3); break;
    case 'w':
    case 'u': number(WeekDay, 1); break;
    case 'U': number(SundayWeek, 2); break;
    case 'W': number(MondayWeek, 2); break;
    case 'V': number(IsoWeek, 2); break;
    case 'H': number(Hour, 2); break;
    case 'k': padded = true, number(Hour, 2); break;
    case 'I': number(Hour12, 2); break;
    case 'l': padded = true, number(Hour12, 2); break;
    case 'M': number(Minute, 2); break;
    case 'S': number(Second, 2); break;
    case 's': number(Epoch, LongestEpoch); break;
    case 'a':
    case 'A': AddNames(WeekDay, conversion, padded); break;
    case 'b':
    case 'h':
    case 'B': AddNames(Month, conversion, padded); break;
    case 'p':
    case 'P': AddNames(Afternoon, 'p', padded); break;
    case 'z': m_pieces.emplace_back().field = Offset; break;
    case 'Z':
        m_pieces.emplace_back().field = ZoneName;
        m_pieces.back().names = ZoneNames();
        break;
    case 'n': AddLiteral("\n"); break;
    case 't': AddLiteral("\t"); break;
    case '%': AddLiteral("%"); break;
    default:
        // As in the "C" locale; CanRead has to see whether that is the one.
        const std::string_view composed = Platform::ComposedTimeFormat(conversion);
        m_readable = m_readable && !composed.empty();
        Compile(composed);
    }
}

bool LogDateTimeReader::ReadPiece(const Piece& piece, std::string_view& text, Values& values) const {
    if (piece.form == Form::Text) {
        std::int64_t offset = 0;
        switch (piece.field) {
        case Offset:
            if (!TakeOffset(text, offset))
                return false;
            values.Set(Offset, offset);
            return true;
        case ZoneName: return TakeZoneName(text, piece.names, values.zone);
        default:
            if (text.substr(0, piece.literal.size()) != piece.literal)
                return false;
            text.remove_prefix(piece.literal.size());
            return true;
        }
    }
    if (piece.padded)
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    if (piece.form == Form::Name) {
        std::size_t index = 0;
        if (!TakeName(text, piece.names, index))
            return false;
        values.Set(piece.field, static_cast<std::int64_t>(index) + (piece.field == Month ? 1 : 0));
        return true;
    }
    std::int64_t value = 0;
    if (!(piece.field == Epoch ? TakeSigned(text, piece.digits, value) : TakeDigits(text, piece.digits, value)))
        return false;
    values.Set(piece.field, value);
    return true;
}

bool LogDateTimeReader::Read(std::string_view& text, LogMoment& moment) {
    constexpr std::size_t Longest = 1023; // that is written
    std::string_view rest = text.substr(0, Longest);
    // The text may go on with a digit of a longer one, though.
    const std::size_t known = m_lastText.size();
    if (known != 0 && rest.substr(0, known) == m_lastText &&
        (rest.size() == known || !(IsLetter(rest[known]) || IsDigit(rest[known])))) {
        moment = m_lastMoment;
        text.remove_prefix(known);
        return true;
    }
    Values values;
    for (const Piece& piece : m_pieces) {
        if (!ReadPiece(piece, rest, values))
            return false;
    }
    if (!m_readable || !Resolve(values, moment))
        return false;
    const std::size_t length = std::min(text.size(), Longest) - rest.size();
    m_lastText = text.substr(0, length);
    m_lastMoment = moment;
    text.remove_prefix(length);
    return true;
}

bool LogDateTimeReader::Resolve(const Values& values, LogMoment& moment) {
    const std::int64_t* const v = values.values;
    if (values.Has(Epoch)) {
        moment.first = moment.last = v[Epoch];
        return true;
    }
    const auto isIn = [&](Field field, std::int64_t low, std::int64_t high) {
        return !values.Has(field) || (low <= v[field] && v[field] <= high);
    };
    constexpr std::int64_t LatestYear = std::numeric_limits<int>::max();
    if (!isIn(Year, 0, LatestYear) || !isIn(IsoYear, 0, LatestYear) || !isIn(Century, 0, LatestYear / 100) ||
        !isIn(ShortYear, 0, 99) || !isIn(IsoShortYear, 0, 99) || !isIn(Month, 1, 12) || !isIn(Day, 1, 31) ||
        !isIn(YearDay, 1, 366) || !isIn(Hour, 0, 23) || !isIn(Hour12, 1, 12) || !isIn(Minute, 0, 59) ||
        !isIn(Second, 0, 60))
        return false;
    std::int64_t day = 0;
    if (!FindDay(values, day))
        return false;
    const std::int64_t hour = values.Has(Hour) ? v[Hour] : v[Hour12] % 12 + 12 * v[Afternoon];
    const std::int64_t local = day * DaySeconds + hour * 3600 + v[Minute] * 60 + v[Second];
    if (values.Has(Offset) || m_utc)
        moment.first = moment.last = local - v[Offset];
    else
        FromLocal(local, values.zone, moment);
    return true;
}

bool LogDateTimeReader::FindDay(const Values& values, std::int64_t& day) {
    const std::int64_t* const v = values.values;
    if (values.Has(Year) && values.Has(Month) && values.Has(Day)) {
        day = Platform::DayNumber(v[Year], v[Month], v[Day]);
        return true;
    }
    constexpr unsigned DateFields = (1U << Hour) - 1;
    const unsigned told = values.told & DateFields;
    if (!m_hasSearched || (m_searched.told & DateFields) != told || !std::equal(v, v + Hour, m_searched.values)) {
        m_hasSearched = true;
        m_searched = values;
        m_searchedFound = SearchDay(values, m_searchedDay);
    }
    day = m_searchedDay;
    return m_searchedFound;
}

bool LogDateTimeReader::SearchDay(const Values& values, std::int64_t& day) const {
    const std::int64_t* const v = values.values;
    // After 28 years the days of the week fall on the same dates again.
    std::int64_t start = 1970;
    std::int64_t years = 28;
    if (values.Has(Year)) {
        start = v[Year];
        years = 1;
    } else if (values.Has(IsoYear)) {
        start = v[IsoYear] - 1;
        years = 3;
    } else if (values.Has(Century) && values.Has(ShortYear)) {
        start = v[Century] * 100 + v[ShortYear];
        years = 1;
    } else if (values.Has(Century)) {
        start = v[Century] * 100;
        years = 100;
    } else if (values.Has(ShortYear) || values.Has(IsoShortYear)) {
        const std::int64_t year = v[values.Has(ShortYear) ? ShortYear : IsoShortYear];
        start = Platform::YearOfTwoDigits(static_cast<int>(year)) - (values.Has(ShortYear) ? 0 : 1);
        years = 3;
    }
    const auto is = [&](Field field, std::int64_t value) { return !values.Has(field) || v[field] == value; };
    const auto isIsoWeek = [&](const Date& date) {
        const Platform::IsoWeek iso(date.year, date.yearDay, date.weekDay);
        return is(IsoYear, iso.year) && is(IsoShortYear, Platform::YearInCentury(iso.year)) && is(IsoWeek, iso.week);
    };
    const auto week = [](const Date& date, int sinceStart) { return Platform::WeekOfYear(date.yearDay, sinceStart); };
    for (Date date(start); date.year < start + years; date.Next()) {
        if (is(Month, date.month) && is(Day, date.monthDay) && is(YearDay, date.yearDay + 1) &&
            is(ShortYear, Platform::YearInCentury(date.year)) &&
            (is(WeekDay, date.weekDay) || is(WeekDay, date.weekDay + 7)) && is(SundayWeek, week(date, date.weekDay)) &&
            is(MondayWeek, week(date, Platform::SinceMonday(date.weekDay))) && isIsoWeek(date)) {
            day = date.day;
            return true;
        }
    }
    return false;
}

void LogDateTimeReader::FromLocal(std::int64_t local, std::string_view zone, LogMoment& moment) {
    const std::int64_t day = Platform::FloorDiv(local, DaySeconds);
    if (day == m_plainDay) {
        moment.first = moment.last = local - m_plainOffset;
        return;
    }
    // A clock is changed once in a few days at most.
    const std::int64_t before = LocalOffset((day - 1) * DaySeconds);
    const std::int64_t after = LocalOffset((day + 2) * DaySeconds);
    if (before == after) {
        m_plainDay = day;
        m_plainOffset = before;
        moment.first = moment.last = local - before;
        return;
    }
    moment.first = local - before;
    moment.last = local - after;
    const bool isFirst = LocalOffset(moment.first) == before;
    const bool isLast = LocalOffset(moment.last) == after;
    if (isFirst && isLast) {
        if (zone.empty())
            return;
        const bool namesFirst = ZoneAt(moment.first).View() == zone;
        if (namesFirst != (ZoneAt(moment.last).View() == zone))
            (namesFirst ? moment.last : moment.first) = namesFirst ? moment.first : moment.last;
    } else if (isLast) {
        moment.first = moment.last;
    } else { // also in the hour that the clocks leave out
        moment.last = moment.first;
    }
}

bool LogDateTimeReader::CanRead(const KeldMBString& format, bool utc) {
    // Times of all sizes of numbers, the ends of days, months and years, and some in between.
    std::vector<KeldTime> times = {KeldTime(2024, 2, 29, 0, 0, 0),   KeldTime(2024, 12, 31, 23, 59, 59),
                                   KeldTime(2026, 1, 1, 0, 0, 0),    KeldTime(2027, 1, 3, 12, 0, 0),
                                   KeldTime(2026, 11, 30, 1, 1, 1),  KeldTime(2026, 12, 28, 11, 59, 59),
                                   KeldTime(1999, 10, 10, 13, 5, 9), KeldTime(2026, 7, 4, 10, 10, 10)};
    for (std::int64_t i = 0; i < 14; ++i)
        times.emplace_back(1000000000 + i * 41234567);
    LogDateTimeReader reader(format, utc);
    return std::all_of(times.begin(), times.end(), [&](KeldTime time) {
        const KeldMBString text = FormatLogTime(time, format, utc);
        std::string_view rest = text.View();
        LogMoment moment;
        return reader.Read(rest, moment) && rest.empty() &&
               (FormatLogTime(KeldTime(moment.first), format, utc) == text ||
                FormatLogTime(KeldTime(moment.last), format, utc) == text);
    });
}

} // namespace Qzc
