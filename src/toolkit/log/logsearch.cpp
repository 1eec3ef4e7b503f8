#include "toolkit/log/logsearch.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace Qzc {

void LogSearch::StartSource(KeldTime newest) {
    MergeSource();
    m_newerTime = newest.GetTime();
    m_newerSpan = 0;
}

bool LogSearch::TakeRecord(const LogRecord& record) {
    if (m_new.size() >= m_maxNum)
        return false;
    m_newerTime = record.dateTime.GetTime();
    m_newerSpan = record.timeSpan;
    if (!MatchesQuery(m_query, record))
        return true;
    if (m_sink != nullptr)
        return m_sink(record.ToItem());
    m_new.push_back(record.ToItem());
    return m_new.size() < m_maxNum;
}

// Most items of a large file are none of those that are looked for, and this is all they cost.
bool LogSearch::Wants(const LogItemReader& reader, std::string_view text) {
    const LogReading* const start = reader.Start();
    if (start == nullptr || m_new.size() >= m_maxNum)
        return true;
    LogReading known = *start;
    if (reader.KnownAtStart().time)
        known.dateTime = TimeOf(known);
    return MayMatchQuery(m_query, known, reader.KnownAtStart()) &&
           text.find(m_query.m_strText.View()) != std::string_view::npos;
}

bool LogSearch::Take(LogReading& reading) {
    reading.dateTime = TimeOf(reading);
    return TakeRecord(reading);
}

// Where the clocks went through an hour twice, the item behind this one tells which time it was: by the milliseconds
// between the two if one process wrote both, else this one just is not younger.
KeldTime LogSearch::TimeOf(const LogReading& reading) {
    if (!reading.hasMoment)
        return reading.dateTime;
    std::int64_t time = reading.moment.last;
    if (reading.moment.first != time) {
        constexpr std::int64_t Near = 900;
        const std::int64_t expected = m_newerTime - std::max<std::int64_t>(m_newerSpan - reading.timeSpan, 0) / 1000;
        const std::int64_t first = reading.moment.first;
        if (std::abs(first - expected) < Near || (std::abs(time - expected) >= Near && time > m_newerTime))
            time = first;
    }
    m_newerTime = time;
    m_newerSpan = reading.timeSpan;
    return KeldTime(time);
}

// Each file's items stay in their order; which file's come first, their times tell.
void LogSearch::MergeSource() {
    std::vector<QzLogItem> all;
    all.reserve(std::min(m_found.size() + m_new.size(), m_maxNum));
    auto a = m_found.begin();
    auto b = m_new.begin();
    while (all.size() < m_maxNum && (a != m_found.end() || b != m_new.end())) {
        const bool takeNew = a == m_found.end() || (b != m_new.end() && a->m_dtDateTime < b->m_dtDateTime);
        all.push_back(std::move(takeNew ? *b++ : *a++));
    }
    m_found = std::move(all);
    m_new.clear();
}

void LogSearch::Give(KeldArray<QzLogItem>& items) {
    MergeSource();
    items.RemoveAll();
    items.Reserve(static_cast<int>(m_found.size()));
    for (auto item = m_found.rbegin(); item != m_found.rend(); ++item)
        items.Add(std::move(*item));
}

} // namespace Qzc
