#include "toolkit/qzlogquerydef.h"

#include "toolkit/qzlogitem.h"

namespace Qzc {

namespace {

template <class T>
bool IsBetween(T low, T value, T high) {
    return low <= value && value <= high;
}

} // namespace

bool QzLogQueryDef::Matches(const QzLogItem& item) const {
    return IsBetween<int>(m_nMinLevel, item.m_eLevel, m_nMaxLevel) &&
           IsBetween(m_nMinResID, item.m_nResID, m_nMaxResID) && IsBetween(m_dtFrom, item.m_dtDateTime, m_dtTo) &&
           (m_nThreadID == 0 || m_nThreadID == item.m_nThreadID) &&
           (item.m_strDescription.Find(m_strText) >= 0 || item.m_strCodeFile.Find(m_strText) >= 0);
}

} // namespace Qzc
