#include "toolkit/log/loglayout.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <iterator>

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

template <std::size_t Size>
void PutEnds(char* out, std::string_view text) {
    std::memcpy(out, text.data(), Size);
    std::memcpy(out + text.size() - Size, text.data() + text.size() - Size, Size);
}

// Most texts are a few bytes long: two moves of a fixed size, which may overlap, cost less than a call.
char* Put(char* out, std::string_view text) {
    if (text.size() > 32)
        std::memcpy(out, text.data(), text.size());
    else if (text.size() >= 16)
        PutEnds<16>(out, text);
    else if (text.size() >= 8)
        PutEnds<8>(out, text);
    else if (text.size() >= 4)
        PutEnds<4>(out, text);
    else if (text.size() >= 2)
        PutEnds<2>(out, text);
    else if (!text.empty())
        *out = text[0];
    return out + text.size();
}

constexpr std::size_t MostDigits = 24;
constexpr std::size_t MostWidth = 6;
constexpr std::size_t NumberRoom = MostWidth + MostDigits; // also of a level

// Moves of a fixed size again; what they bring too much is written over.
char* PutNumber(char* out, std::int64_t value, std::ptrdiff_t width, const char* padding = "      ") {
    char digits[MostDigits] = {};
    const std::ptrdiff_t size = std::to_chars(std::begin(digits), std::end(digits), value).ptr - digits;
    std::memcpy(out, padding, MostWidth);
    out += std::max<std::ptrdiff_t>(width - size, 0);
    std::memcpy(out, digits, MostDigits);
    return out + size;
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
        case Field::Milliseconds: out = PutNumber(out, own.milliseconds, 3, "000000"); break;
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
    default: return NumberRoom;
    }
}

} // namespace Qzc
