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

bool MayMatchQuery(const QzLogQueryDef& query, const LogRecord& record, const LogKnown& known) {
    return (!known.level || IsBetween<int>(query.m_nMinLevel, record.level, query.m_nMaxLevel)) &&
           (!known.resID || IsBetween(query.m_nMinResID, record.resID, query.m_nMaxResID)) &&
           (!known.time || IsBetween(query.m_dtFrom, record.dateTime, query.m_dtTo)) &&
           (!known.threadID || query.m_nThreadID == 0 || query.m_nThreadID == record.threadID);
}

bool MatchesQuery(const QzLogQueryDef& query, const LogRecord& record) {
    const std::string_view text = query.m_strText.View();
    return MayMatchQuery(query, record, {true, true, true, true}) &&
           (record.message.find(text) != std::string_view::npos ||
            record.codeFile.find(text) != std::string_view::npos);
}

bool QzLogQueryDef::Matches(const QzLogItem& item) const {
    return MatchesQuery(*this, item);
}

} // namespace Qzc
