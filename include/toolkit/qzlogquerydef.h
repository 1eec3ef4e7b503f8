#pragma once

#include <cstdint>
#include <limits>

#include "base/keldmbstring.h"
#include "base/keldtime.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

class QzLogItem;

/// What QzLogFile::Query and QueryFile look for. Ranges include their ends; a new one matches every item.
class MOTOOLKIT_API QzLogQueryDef {
public:
    int m_nMinLevel = std::numeric_limits<int>::min();           ///< QzLogFile::LogLevelType, from
    int m_nMaxLevel = std::numeric_limits<int>::max();           ///< to
    int m_nMinResID = std::numeric_limits<int>::min();           ///< the message code, from
    int m_nMaxResID = std::numeric_limits<int>::max();           ///< to
    KeldTime m_dtFrom{std::numeric_limits<std::int64_t>::min()}; ///< when it was recorded, from
    KeldTime m_dtTo{std::numeric_limits<std::int64_t>::max()};   ///< to
    unsigned int m_nThreadID = 0;                                ///< 0: any
    KeldMBString m_strText;           ///< stands in the message or in the source file, byte by byte
    unsigned char m_bRolledFiles = 0; ///< 1: also in the files that the log was in before, if they are still there

    bool Matches(const QzLogItem& item) const; ///< whether a query gives the item
};

} // namespace Qzc
