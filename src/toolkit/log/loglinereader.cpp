#include "toolkit/log/loglinereader.h"

#include <algorithm>

namespace Qzc {

namespace {

using Field = LogLayout::Field;

bool IsFreeText(Field field) {
    return field == Field::Message || field == Field::CodeFile;
}

// Literals are a few bytes long.
bool TakeOff(std::string_view& text, const std::string& start) {
    if (text.size() < start.size())
        return false;
    for (std::size_t i = 0; i < start.size(); ++i) {
        if (text[i] != start[i])
            return false;
    }
    text.remove_prefix(start.size());
    return true;
}

// Items are searched backwards, a few bytes at a time: what std::string_view does for each byte is too much.
std::size_t FindBackwards(std::string_view text, std::string_view what, std::size_t from) {
    if (what.size() > text.size())
        return std::string_view::npos;
    for (std::size_t at = std::min(from, text.size() - what.size()) + 1; at-- > 0;) {
        if (what.empty() || (text[at] == what[0] && text.substr(at, what.size()) == what))
            return at;
    }
    return std::string_view::npos;
}

} // namespace

LogLineReader::LogLineReader(const KeldMBString& format, const KeldMBString& dateTimeFormat, bool utc)
    : m_layout(format, dateTimeFormat, LogLayout::Values::Plain), m_dateTime(dateTimeFormat, utc) {
    const auto& pieces = m_layout.Pieces();
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (IsFreeText(pieces[i].field))
            m_freeTexts.push_back(i);
    }
    const auto message = std::find_if(m_freeTexts.begin(), m_freeTexts.end(),
                                      [&](std::size_t piece) { return pieces[piece].field == Field::Message; });
    m_message = static_cast<std::size_t>(message - m_freeTexts.begin());
    m_headTells = message != m_freeTexts.end() && *message > m_message;
    const auto count = [&](Field field) {
        return std::count_if(pieces.begin(), pieces.end(), [&](const auto& piece) { return piece.field == field; });
    };
    m_repeats = std::any_of(pieces.begin(), pieces.end(), [&](const auto& piece) { return count(piece.field) > 1; });
    m_known = {IsKnown(Field::DateTime), IsKnown(Field::Level), IsKnown(Field::ResID), IsKnown(Field::ThreadID)};
    m_startsWithTime = !pieces.empty() && pieces[0].field == Field::DateTime && pieces[0].literal.empty();
    m_starts.resize(m_freeTexts.size());
    m_ends.resize(m_freeTexts.size());
}

// Whether a value stands in front of the message, or nowhere.
bool LogLineReader::IsKnown(Field field) const {
    const auto& pieces = m_layout.Pieces();
    const std::size_t message = m_message < m_freeTexts.size() ? m_freeTexts[m_message] : 0;
    return std::none_of(pieces.begin() + static_cast<std::ptrdiff_t>(message), pieces.end(),
                        [&](const auto& piece) { return piece.field == field; });
}

const std::string& LogLineReader::Literal(std::size_t piece) const {
    return piece < m_layout.Pieces().size() ? m_layout.Pieces()[piece].literal : m_layout.Tail();
}

bool LogLineReader::KnowsStart() const {
    const auto& pieces = m_layout.Pieces();
    return pieces.empty() ? !m_layout.Tail().empty() : pieces[0].field != Field::Message || !pieces[0].literal.empty();
}

bool LogLineReader::ReadValue(Field field, std::string_view& text, LogReading& reading) {
    switch (field) {
    case Field::DateTime: reading.hasMoment = m_dateTime.Read(text, reading.moment); return reading.hasMoment;
    case Field::TimeSpan: return ReadLogNumber(text, reading.timeSpan);
    case Field::Level: return ReadLogLevel(text, reading.level);
    case Field::ResID: return ReadLogNumber(text, reading.resID);
    case Field::ThreadID: return ReadLogNumber(text, reading.threadID);
    case Field::CodeLine: return ReadLogNumber(text, reading.codeLine);
    case Field::Milliseconds: return ReadLogNumber(text, reading.milliseconds);
    case Field::ProcessID: return ReadLogNumber(text, reading.processID);
    case Field::Message:
    case Field::CodeFile: break;
    }
    return false;
}

bool LogLineReader::StartsItem(std::string_view text) {
    const auto& pieces = m_layout.Pieces();
    if (m_startsWithTime && !m_dateTime.MayStart(text))
        return false;
    const std::size_t message = m_message < m_freeTexts.size() ? m_freeTexts[m_message] : pieces.size();
    std::string_view rest = text;
    m_head = LogReading();
    std::size_t freeText = 0;
    for (std::size_t piece = 0; piece <= message; ++piece) {
        if (!TakeOff(rest, Literal(piece)))
            return false;
        if (piece == message)
            break;
        if (pieces[piece].field == Field::CodeFile) {
            // A line break in the name of a source file would make every line a start.
            const std::string_view line = rest.substr(0, rest.find('\n'));
            const std::size_t end = line.find(Literal(piece + 1));
            if (end == std::string_view::npos)
                return false;
            m_starts[freeText] = text.size() - rest.size();
            rest.remove_prefix(end);
            m_ends[freeText++] = text.size() - rest.size();
        } else if (!ReadValue(pieces[piece].field, rest, m_head)) {
            return false;
        }
    }
    m_headEnd = text.size() - rest.size();
    return true;
}

// The literals and values between two free texts, or in front of the first or behind the last one, which ends the text.
// Where they end, `No` when they do not stand at `at`.
std::size_t LogLineReader::ReadFixed(std::size_t stretch, std::string_view text, std::size_t at, LogReading& reading) {
    const auto& pieces = m_layout.Pieces();
    std::string_view rest = text.substr(at);
    for (std::size_t piece = stretch == 0 ? 0 : m_freeTexts[stretch - 1] + 1;; ++piece) {
        if (!TakeOff(rest, Literal(piece)))
            return No;
        if (piece == pieces.size())
            return rest.empty() ? text.size() : No;
        if (IsFreeText(pieces[piece].field))
            return text.size() - rest.size();
        if (!ReadValue(pieces[piece].field, rest, reading))
            return No;
    }
}

// The same at the first place from `from` on; that place, and the end in m_starts.
std::size_t LogLineReader::FindFixed(std::size_t stretch, std::string_view text, std::size_t from,
                                     LogReading& reading) {
    const std::string& literal = Literal(m_freeTexts[stretch - 1] + 1);
    for (std::size_t at = from; (at = text.find(literal, at)) != std::string_view::npos; ++at) {
        const LogReading before = reading;
        const std::size_t end = ReadFixed(stretch, text, at, reading);
        if (end != No) {
            if (stretch < m_freeTexts.size())
                m_starts[stretch] = end;
            return at;
        }
        reading = before;
    }
    return No;
}

// What stands behind the message, each stretch at the last place where it and all behind it fit.
bool LogLineReader::FindTail(std::string_view text, std::size_t from, LogReading& reading) {
    std::size_t latest = text.size();
    for (std::size_t stretch = m_freeTexts.size(); stretch > m_message; --stretch) {
        const std::string& literal = Literal(m_freeTexts[stretch - 1] + 1);
        std::size_t at = latest;
        std::size_t end = No;
        for (;; --at) {
            at = FindBackwards(text, literal, at);
            if (at == std::string_view::npos || at < from)
                return false;
            end = ReadFixed(stretch, text, at, reading);
            if (end != No && end <= latest)
                break;
            if (at == 0)
                return false;
        }
        m_ends[stretch - 1] = at;
        if (stretch < m_freeTexts.size())
            m_starts[stretch] = end;
        latest = at;
    }
    return true;
}

// A format without a message.
bool LogLineReader::ReadAll(std::string_view text, LogReading& reading) {
    std::size_t at = ReadFixed(0, text, 0, reading);
    for (std::size_t stretch = 1; at != No && stretch <= m_freeTexts.size(); ++stretch) {
        m_starts[stretch - 1] = at;
        m_ends[stretch - 1] = FindFixed(stretch, text, at, reading);
        if (m_ends[stretch - 1] == No)
            return false;
        at = stretch < m_freeTexts.size() ? m_starts[stretch] : text.size();
    }
    return at != No;
}

bool LogLineReader::Read(std::string_view text, LogReading& reading) {
    reading = LogReading();
    const std::size_t count = m_freeTexts.size();
    if (m_message == count) {
        if (!ReadAll(text, reading))
            return false;
    } else {
        if (m_headEnd > text.size())
            return false;
        reading = m_head;
        m_starts[m_message] = m_headEnd;
        bool ends = FindTail(text, m_headEnd, reading);
        if (!ends) { // it may have empty lines behind it, which are nobody's
            const std::string_view bare = text.substr(0, text.find_last_not_of("\r\n") + 1);
            ends = bare.size() < text.size() && bare.size() >= m_headEnd && FindTail(bare, m_headEnd, reading);
            if (ends)
                text = bare;
        }
        if (!ends) {
            if (!m_headTells)
                return false;
            reading = m_head; // without what was tried
            reading.message = text.substr(m_headEnd);
            if (m_message > 0)
                reading.codeFile = text.substr(m_starts[0], m_ends[0] - m_starts[0]);
            return true;
        }
        for (std::size_t stretch = m_message + 1; m_repeats && stretch <= count; ++stretch) // the last one counts
            ReadFixed(stretch, text, m_ends[stretch - 1], reading);
    }
    for (std::size_t i = count; i-- > 0;) {
        const bool isMessage = m_layout.Pieces()[m_freeTexts[i]].field == Field::Message;
        (isMessage ? reading.message : reading.codeFile) = text.substr(m_starts[i], m_ends[i] - m_starts[i]);
    }
    return true;
}

} // namespace Qzc
