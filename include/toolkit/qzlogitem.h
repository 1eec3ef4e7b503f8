#pragma once

#include <cstdint>

#include "base/keldmbstring.h"
#include "base/keldtime.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"
#include "toolkit/qzlogfile.h"

namespace Qzc {

/// One recorded line of the log. An item that was read back holds what the line format told; the rest is as
/// in a new one.
class MOTOOLKIT_API QzLogItem {
public:
    KeldTime m_dtDateTime;                              ///< when it was recorded
    std::int64_t m_nTimeSpan = 0;                       ///< the same on the base library's millisecond clock
    int m_nResID = 0;                                   ///< the message code
    unsigned int m_nThreadID = 0;                       ///< the recording thread; 0 unless the line format names it
    QzLogFile::LogLevelType m_eLevel = QzLogFile::info; ///< how grave it is
    KeldMBString m_strDescription;                      ///< the message
    KeldMBString m_strCodeFile;                         ///< where in the sources it was recorded
    int m_nCodeLine = 0;                                ///< and in which line
    int m_nMilliseconds = 0;                            ///< of the second when it was recorded
    unsigned int m_nProcessID = 0;                      ///< the recording process; 0 unless the line format names it

    /// The item as a line of text; see QzLogFile::SetLogFormat and SetDateTimeFormat.
    KeldMBString GetReplaceString(const KeldMBString& format, const KeldMBString& dateTimeFormat) const;
};

} // namespace Qzc
