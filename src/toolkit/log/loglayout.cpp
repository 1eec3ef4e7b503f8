#include "toolkit/log/loglayout.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "toolkit/log/logclock.h"
#include "toolkit/qzlogitem.h"

namespace Qzc {

namespace {

constexpr struct {
    std::string_view padded; // to 7 characters
    QzLogFile::LogLevelType level;
} Levels[] = {
    {"  debug", QzLogFile::debug}, {"   info", QzLogFile::info},  {"warning", QzLogFile::warning},
    {"  error", QzLogFile::error}, {"  fatal", QzLogFile::fatal},
};

std::string_view PaddedLevel(QzLogFile::LogLevelType level) {
    const auto* const known =
        std::find_if(std::begin(Levels), std::end(Levels), [&](const auto& row) { return row.level == level; });
    return known != std::end(Levels) ? known->padded : "unknown";
}

void AppendNumber(std::string& text, std::int64_t value, std::size_t width, char padding = ' ') {
    char digits[24];
    const auto length =
        static_cast<std::size_t>(std::to_chars(std::begin(digits), std::end(digits), value).ptr - digits);
    if (length < width)
        text.append(width - length, padding);
    text.append(digits, length);
}

} // namespace

const LogLayout::Placeholder LogLayout::Placeholders[] = {
    {"%DATETIME", Field::DateTime}, {"%TIMESPAN", Field::TimeSpan}, {"%LEVEL", Field::Level},
    {"%MSG", Field::Message},       {"%RESID", Field::ResID},       {"%THREADID", Field::ThreadID},
    {"%CODEFILE", Field::CodeFile}, {"%CODELINE", Field::CodeLine}, {"%MS", Field::Milliseconds},
    {"%PID", Field::ProcessID},
};

// No placeholder is part of another but %MS of %MSG, which is looked for first, and values are not searched for
// placeholders, so a message that holds one stands as it is: one pass gives what replacing them one after the other
// would.
LogLayout::LogLayout(const KeldMBString& format, const KeldMBString& dateTimeFormat, Values values, bool utc)
    : m_dateTimeFormat(dateTimeFormat), m_values(values), m_utc(utc) {
    const std::string_view text = format.View();
    std::size_t copied = 0;
    for (std::size_t at = 0; (at = text.find('%', at)) != std::string_view::npos;) {
        const auto* const found =
            std::find_if(std::begin(Placeholders), std::end(Placeholders),
                         [&](const Placeholder& row) { return text.substr(at, row.name.size()) == row.name; });
        if (found == std::end(Placeholders)) {
            ++at;
            continue;
        }
        m_pieces.push_back({std::string(text.substr(copied, at - copied)), found->field});
        copied = at += found->name.size();
    }
    m_tail = text.substr(copied);
    m_hasThreadID = Has(Field::ThreadID);
    m_hasProcessID = Has(Field::ProcessID);
}

bool LogLayout::Has(Field field) const {
    return std::any_of(m_pieces.begin(), m_pieces.end(), [&](const Piece& piece) { return piece.field == field; });
}

const std::string& LogLayout::DateTimeText(KeldTime time) {
    if (m_timeText.empty() || m_time != time) {
        m_timeText = FormatLogTime(time, m_dateTimeFormat, m_utc).View();
        m_time = time;
    }
    return m_timeText;
}

void LogLayout::AppendText(std::string& text, std::string_view value) {
    if (m_values == Values::XmlText)
        m_xmlText.Append(text, value);
    else
        text.append(value);
}

void LogLayout::Append(std::string& text, const LogRecord& record) {
    for (const Piece& piece : m_pieces) {
        text.append(piece.literal);
        switch (piece.field) {
        case Field::DateTime: AppendText(text, DateTimeText(record.dateTime)); break;
        case Field::TimeSpan: AppendNumber(text, record.timeSpan, 6); break;
        case Field::Level: text.append(PaddedLevel(record.level)); break;
        case Field::Message: AppendText(text, record.message); break;
        case Field::ResID: AppendNumber(text, record.resID, 6); break;
        case Field::ThreadID: AppendNumber(text, record.threadID, 5); break;
        case Field::CodeFile: AppendText(text, record.codeFile); break;
        case Field::CodeLine: AppendNumber(text, record.codeLine, 0); break;
        case Field::Milliseconds: AppendNumber(text, record.milliseconds, 3, '0'); break;
        case Field::ProcessID: AppendNumber(text, record.processID, 0); break;
        }
    }
    text.append(m_tail);
}

} // namespace Qzc
