#include "toolkit/log/loglayout.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>

#include "toolkit/log/logclock.h"
#include "toolkit/qzlogitem.h"

namespace Qzc {

namespace {

constexpr struct {
    std::string_view name;
    std::string_view padded; // to 7 characters
    QzLogFile::LogLevelType level;
} Levels[] = {
    {"debug", "  debug", QzLogFile::debug},     {"info", "   info", QzLogFile::info},
    {"warning", "warning", QzLogFile::warning}, {"error", "  error", QzLogFile::error},
    {"fatal", "  fatal", QzLogFile::fatal},     {"unknown", "unknown", QzLogFile::LogLevelType{}},
};

std::string_view PaddedLevel(QzLogFile::LogLevelType level) {
    const auto* const known =
        std::find_if(std::begin(Levels), std::end(Levels), [&](const auto& row) { return row.level == level; });
    return known != std::end(Levels) ? known->padded : "unknown";
}

char* Put(char* out, std::string_view text) {
    return std::copy(text.begin(), text.end(), out);
}

constexpr std::size_t MostDigits = 24; // of a number, and bytes of a level

char* PutNumber(char* out, std::int64_t value, std::ptrdiff_t width, char padding = ' ') {
    char* const end = std::to_chars(out, out + MostDigits, value).ptr;
    const std::ptrdiff_t missing = width - (end - out);
    if (missing <= 0)
        return end;
    std::copy_backward(out, end, end + missing);
    std::fill(out, out + missing, padding);
    return end + missing;
}

bool TakeOff(std::string_view& text, std::string_view start) {
    if (text.substr(0, start.size()) != start)
        return false;
    text.remove_prefix(start.size());
    return true;
}

void SkipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
}

} // namespace

const LogLayout::Placeholder LogLayout::Placeholders[] = {
    {"%DATETIME", Field::DateTime}, {"%TIMESPAN", Field::TimeSpan}, {"%LEVEL", Field::Level},
    {"%MSG", Field::Message},       {"%RESID", Field::ResID},       {"%THREADID", Field::ThreadID},
    {"%CODEFILE", Field::CodeFile}, {"%CODELINE", Field::CodeLine}, {"%MS", Field::Milliseconds},
    {"%PID", Field::ProcessID},
};

template <class T>
bool ReadLogNumber(std::string_view& text, T& value) {
    SkipBlanks(text);
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc())
        return false;
    text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
    return true;
}

template bool ReadLogNumber(std::string_view&, int&);
template bool ReadLogNumber(std::string_view&, unsigned int&);
template bool ReadLogNumber(std::string_view&, std::int64_t&);

bool ReadLogLevel(std::string_view& text, QzLogItem& item) {
    SkipBlanks(text);
    for (const auto& row : Levels) {
        if (TakeOff(text, row.name)) {
            item.m_eLevel = row.level;
            return true;
        }
    }
    return false;
}

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
    const auto message = std::find_if(m_pieces.begin(), m_pieces.end(),
                                      [](const Piece& piece) { return piece.field == Field::Message; });
    m_message = static_cast<std::size_t>(message - m_pieces.begin());
    m_literals = m_tail.size();
    for (const Piece& piece : m_pieces)
        m_literals += piece.literal.size();
    m_hasDateTime = Has(Field::DateTime);
    m_hasThreadID = Has(Field::ThreadID);
    m_hasProcessID = Has(Field::ProcessID);
}

bool LogLayout::Has(Field field) const {
    return std::any_of(m_pieces.begin(), m_pieces.end(), [&](const Piece& piece) { return piece.field == field; });
}

const std::string& LogLayout::Literal(std::size_t piece) const {
    return piece < m_pieces.size() ? m_pieces[piece].literal : m_tail;
}

void LogLayout::UpdateDateTimeText(KeldTime time) {
    if (!m_timeText.empty() && m_time == time)
        return;
    m_timeText = FormatLogTime(time, m_dateTimeFormat, m_utc).View();
    m_time = time;
    if (m_values == Values::XmlText) {
        m_timeXml.clear();
        m_xmlText.Append(m_timeXml, m_timeText);
    }
}

void LogLayout::Append(std::string& text, const LogRecord& record) {
    LogRecord own = record;
    if (m_values == Values::XmlText) {
        m_xmlValues.clear();
        m_xmlText.Append(m_xmlValues, record.message);
        const std::size_t end = m_xmlValues.size();
        m_xmlText.Append(m_xmlValues, record.codeFile);
        own.message = std::string_view(m_xmlValues).substr(0, end);
        own.codeFile = std::string_view(m_xmlValues).substr(end);
    }
    if (m_hasDateTime)
        UpdateDateTimeText(own.dateTime);
    // Room for all of it at once, and no question for room at each piece.
    std::size_t room = m_literals;
    for (const Piece& piece : m_pieces)
        room += MostBytes(piece.field, own);
    const std::size_t start = text.size();
    text.resize(start + room);
    char* out = &text[start];
    for (const Piece& piece : m_pieces) {
        out = Put(out, piece.literal);
        switch (piece.field) {
        case Field::DateTime: out = Put(out, m_values == Values::XmlText ? m_timeXml : m_timeText); break;
        case Field::TimeSpan: out = PutNumber(out, own.timeSpan, 6); break;
        case Field::Level: out = Put(out, PaddedLevel(own.level)); break;
        case Field::Message: out = Put(out, own.message); break;
        case Field::ResID: out = PutNumber(out, own.resID, 6); break;
        case Field::ThreadID: out = PutNumber(out, own.threadID, 5); break;
        case Field::CodeFile: out = Put(out, own.codeFile); break;
        case Field::CodeLine: out = PutNumber(out, own.codeLine, 0); break;
        case Field::Milliseconds: out = PutNumber(out, own.milliseconds, 3, '0'); break;
        case Field::ProcessID: out = PutNumber(out, own.processID, 0); break;
        }
    }
    out = Put(out, m_tail);
    text.resize(static_cast<std::size_t>(out - text.data()));
}

std::size_t LogLayout::MostBytes(Field field, const LogRecord& record) const {
    switch (field) {
    case Field::DateTime: return m_values == Values::XmlText ? m_timeXml.size() : m_timeText.size();
    case Field::Message: return record.message.size();
    case Field::CodeFile: return record.codeFile.size();
    default: return MostDigits;
    }
}

bool LogLayout::ReadDateTime(std::string_view& text, KeldTime& time) {
    // Most items have the second of the one before. The text may go on with a digit of a longer one, though.
    const std::size_t known = m_timeText.size();
    if (known != 0 && text.substr(0, known) == m_timeText &&
        (text.size() == known || std::isalnum(static_cast<unsigned char>(text[known])) == 0)) {
        time = m_time;
        text.remove_prefix(known);
        return true;
    }
    constexpr std::size_t LongestDateTime = 256;
    const int length = time.Parse(m_dateTimeFormat, KeldMBString(text.substr(0, LongestDateTime)));
    if (length == 0)
        return false;
    m_time = time;
    m_timeText = text.substr(0, static_cast<std::size_t>(length));
    text.remove_prefix(static_cast<std::size_t>(length));
    return true;
}

bool LogLayout::ReadValue(Field field, std::string_view& text, QzLogItem& item) {
    switch (field) {
    case Field::DateTime: return ReadDateTime(text, item.m_dtDateTime);
    case Field::TimeSpan: return ReadLogNumber(text, item.m_nTimeSpan);
    case Field::Level: return ReadLogLevel(text, item);
    case Field::ResID: return ReadLogNumber(text, item.m_nResID);
    case Field::ThreadID: return ReadLogNumber(text, item.m_nThreadID);
    case Field::CodeLine: return ReadLogNumber(text, item.m_nCodeLine);
    case Field::Milliseconds: return ReadLogNumber(text, item.m_nMilliseconds);
    case Field::ProcessID: return ReadLogNumber(text, item.m_nProcessID);
    default: return false; // free text, which only what follows it ends
    }
}

bool LogLayout::StartsItem(std::string_view text) {
    QzLogItem item;
    for (std::size_t piece = 0; piece < m_message; ++piece) {
        if (!TakeOff(text, m_pieces[piece].literal))
            return false;
        if (m_pieces[piece].field == Field::CodeFile) {
            const std::string_view line = text.substr(0, text.find('\n'));
            const std::size_t end = line.find(Literal(piece + 1));
            if (end == std::string_view::npos)
                return false;
            text.remove_prefix(end);
        } else if (!ReadValue(m_pieces[piece].field, text, item)) {
            return false;
        }
    }
    return TakeOff(text, Literal(m_message));
}

bool LogLayout::Read(std::string_view text, QzLogItem& item) {
    // What a text may be split into grows with the power of the free texts in the format.
    constexpr int MaxFreeTexts = 8;
    constexpr int MaxAttempts = 10000;
    const auto freeTexts = std::count_if(m_pieces.begin(), m_pieces.end(), [](const Piece& piece) {
        return piece.field == Field::Message || piece.field == Field::CodeFile;
    });
    int attempts = MaxAttempts;
    return freeTexts <= MaxFreeTexts && ReadFrom(0, text, item, attempts);
}

bool LogLayout::ReadFrom(std::size_t piece, std::string_view text, QzLogItem& item, int& attempts) {
    for (; piece < m_pieces.size(); ++piece) {
        if (!TakeOff(text, m_pieces[piece].literal))
            return false;
        const Field field = m_pieces[piece].field;
        if (field != Field::Message && field != Field::CodeFile) {
            if (!ReadValue(field, text, item))
                return false;
            continue;
        }
        // The message is what is left when all around it is as short as can be.
        const std::string& next = Literal(piece + 1);
        const bool shortest = piece < m_message;
        std::size_t end = shortest ? text.find(next) : text.rfind(next);
        while (end != std::string_view::npos && attempts-- > 0) {
            if (ReadFrom(piece + 1, text.substr(end), item, attempts)) {
                (field == Field::Message ? item.m_strDescription : item.m_strCodeFile) =
                    KeldMBString(text.substr(0, end));
                return true;
            }
            if (shortest)
                end = text.find(next, end + 1);
            else
                end = end != 0 ? text.rfind(next, end - 1) : std::string_view::npos;
        }
        return false;
    }
    return text == m_tail;
}

} // namespace Qzc
