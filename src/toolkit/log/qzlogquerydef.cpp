#include "toolkit/qzlogquerydef.h"

#include <string_view>

#include "toolkit/log/logsearch.h"
#include "toolkit/qzlogitem.h"

namespace Qzc {

namespace {

template <class T>
bool IsBetween(T low, T value, T high) {
    return low <= value && value <= high;
}

} // namespace

bool MatchesQuery(const QzLogQueryDef& query, const LogReading& reading, KeldTime time) {
    const std::string_view text = query.m_strText.View();
    return IsBetween<int>(query.m_nMinLevel, reading.level, query.m_nMaxLevel) &&
           IsBetween(query.m_nMinResID, reading.resID, query.m_nMaxResID) &&
           IsBetween(query.m_dtFrom, time, query.m_dtTo) &&
           (query.m_nThreadID == 0 || query.m_nThreadID == reading.threadID) &&
           (reading.message.find(text) != std::string_view::npos ||
            reading.codeFile.find(text) != std::string_view::npos);
}

bool QzLogQueryDef::Matches(const QzLogItem& item) const {
    LogReading reading;
    reading.resID = item.m_nResID;
    reading.threadID = item.m_nThreadID;
    reading.level = item.m_eLevel;
    reading.message = item.m_strDescription.View();
    reading.codeFile = item.m_strCodeFile.View();
    return MatchesQuery(*this, reading, item.m_dtDateTime);
}

} // namespace Qzc
