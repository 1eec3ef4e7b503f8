#include "logsummary.h"

#include <algorithm>
#include <iterator>

using namespace Qzc;

namespace Motool {

namespace {

constexpr std::size_t MostFrequent = 8;

std::string Text(const KeldMBString& text) {
    return std::string(text.View());
}

std::int64_t HourOf(KeldTime time) {
    return time.GetTime() - (time.GetMinute() * std::int64_t{60} + time.GetSecond());
}

std::string HourText(std::int64_t hour) {
    return Text(KeldTime(hour).Format("%Y-%m-%d %H:00"));
}

void PrintFrequencies(const char* heading, const Frequencies& texts) {
    PrintBytes("\n");
    Table table({"ITEMS", heading});
    table.AlignRight(0);
    for (const Frequencies::Counted& one : texts.Most(MostFrequent))
        table.Add({Number(one.count), one.text});
    table.Print();
    if (!texts.IsExact())
        PrintLine("(at most so many: there are too many different ones to count each)");
}

std::string JsonFrequencies(const Frequencies& texts) {
    std::string json;
    for (const Frequencies::Counted& one : texts.Most(MostFrequent))
        json +=
            (json.empty() ? "" : ", ") + ("{\"text\": " + Json(one.text)) + ", \"items\": " + Number(one.count) + "}";
    return '[' + json + ']';
}

} // namespace

// ---- Frequencies

void Frequencies::Rise(Place entry) {
    const auto league = entry->league;
    auto next = std::next(league);
    if (next == m_leagues.end() || next->count != league->count + 1)
        next = m_leagues.insert(next, League{league->count + 1, {}});
    next->entries.splice(next->entries.end(), league->entries, entry);
    entry->league = next;
    if (league->entries.empty())
        m_leagues.erase(league);
}

void Frequencies::Add(std::string_view text) {
    text = text.substr(0, LongestText);
    const auto known = m_places.find(text);
    if (known != m_places.end()) {
        Rise(known->second);
        return;
    }
    if (m_places.size() < MaxTexts) {
        if (m_leagues.empty() || m_leagues.front().count != 1)
            m_leagues.push_front(League{1, {}});
        std::list<Entry>& lowest = m_leagues.front().entries;
        lowest.push_back({std::string(text), m_leagues.begin()});
        m_places.emplace(lowest.back().text, std::prev(lowest.end()));
        return;
    }
    // The least frequent makes way, and leaves its count to the new one.
    m_isExact = false;
    const Place loser = m_leagues.front().entries.begin();
    m_places.erase(loser->text);
    loser->text = std::string(text);
    m_places.emplace(loser->text, loser);
    Rise(loser);
}

std::vector<Frequencies::Counted> Frequencies::Most(std::size_t number) const {
    std::vector<Counted> most;
    for (auto league = m_leagues.rbegin(); league != m_leagues.rend(); ++league) {
        for (auto entry = league->entries.begin(); entry != league->entries.end() && most.size() < number; ++entry)
            most.push_back({entry->text, league->count});
    }
    return most;
}

// ---- LogSummary

const char* LevelName(int level) {
    switch (level) {
    case QzLogFile::debug: return "debug";
    case QzLogFile::info: return "info";
    case QzLogFile::warning: return "warning";
    case QzLogFile::error: return "error";
    case QzLogFile::fatal: return "fatal";
    default: return "unknown";
    }
}

Colour LevelColour(int level) {
    return level >= QzLogFile::fatal     ? Colour::Fatal
           : level >= QzLogFile::error   ? Colour::Red
           : level >= QzLogFile::warning ? Colour::Yellow
           : level >= QzLogFile::info    ? Colour::Green
                                         : Colour::Grey;
}

std::string TimeText(KeldTime time) {
    return Text(time.Format("%Y-%m-%d %H:%M:%S"));
}

void LogSummary::Add(const QzLogItem& item) {
    const std::int64_t time = item.m_dtDateTime.GetTime();
    m_first = m_count == 0 ? time : std::min(m_first, time);
    m_last = m_count == 0 ? time : std::max(m_last, time);
    ++m_count;
    ++m_levels[item.m_eLevel];
    constexpr std::int64_t Hour = 3600;
    if (time < m_hour || time >= m_hour + Hour) // most follow one in the same hour
        m_hour = HourOf(item.m_dtDateTime);
    ++m_hours[m_hour];
    if (m_hours.size() > MaxHours) {
        m_older += m_hours.begin()->second;
        m_hours.erase(m_hours.begin());
    }
    m_messages.Add(item.m_strDescription.View());
    if (!item.m_strCodeFile.IsEmpty())
        m_sources.Add((item.m_strCodeFile + ":" + KeldMBString(Number(item.m_nCodeLine))).View());
}

void LogSummary::Print() const {
    constexpr int BarWidth = 40;
    constexpr std::size_t ShownHours = 48;
    PrintLine(Plural(m_count, "item", "items") + ", from " + TimeText(KeldTime(m_first)) + " to " +
              TimeText(KeldTime(m_last)) + "\n");
    Table levels({"LEVEL", "ITEMS", ""});
    levels.AlignRight(1);
    std::int64_t most = 0;
    for (const auto& level : m_levels)
        most = std::max(most, level.second);
    for (auto level = m_levels.rbegin(); level != m_levels.rend(); ++level)
        levels.Add({LevelName(level->first), Number(level->second), Bar(level->second, most, BarWidth)},
                   LevelColour(level->first));
    levels.Print();

    PrintBytes("\n");
    Table hours({"HOUR", "ITEMS", ""});
    hours.AlignRight(1);
    // Hours without an item between two that have some stand there, too, unless they are many.
    std::map<std::int64_t, std::int64_t> shown = m_hours;
    std::int64_t older = m_older;
    for (auto hour = m_hours.begin(); hour != m_hours.end() && shown.size() <= 2 * ShownHours; ++hour) {
        const auto next = std::next(hour);
        constexpr std::int64_t Hour = 3600;
        const bool isNear = next != m_hours.end() && next->first - hour->first <= 12 * Hour;
        for (std::int64_t between = hour->first + Hour; isNear && between < next->first; between += Hour)
            shown.emplace(between, 0);
    }
    while (shown.size() > ShownHours) {
        older += shown.begin()->second;
        shown.erase(shown.begin());
    }
    most = 0;
    for (const auto& hour : shown)
        most = std::max(most, hour.second);
    if (older > 0)
        hours.Add({"before", Number(older), ""});
    for (const auto& [hour, count] : shown)
        hours.Add({HourText(hour), Number(count), Bar(count, most, BarWidth)});
    hours.Print();
    if (!m_sources.Most(1).empty())
        PrintFrequencies("SOURCE", m_sources);
    PrintFrequencies("MESSAGE", m_messages);
}

void LogSummary::PrintJson() const {
    std::string levels;
    for (const auto& [level, count] : m_levels)
        levels += (levels.empty() ? "" : ", ") + Json(LevelName(level)) + ": " + Number(count);
    std::string hours;
    for (const auto& [hour, count] : m_hours)
        hours += (hours.empty() ? "" : ", ") + Json(HourText(hour)) + ": " + Number(count);
    PrintBytes("{\"items\": " + Number(m_count) + ", \"first\": " + Json(TimeText(KeldTime(m_first))) +
               ", \"last\": " + Json(TimeText(KeldTime(m_last))) + ", \"levels\": {" + levels + "}, \"hours\": {" +
               hours + "}, \"sources\": " + JsonFrequencies(m_sources) +
               ", \"messages\": " + JsonFrequencies(m_messages) + "}\n");
}

} // namespace Motool
