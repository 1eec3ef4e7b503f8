#include "toolkit/log/logrecord.h"

namespace Qzc {

LogRecord::LogRecord(const QzLogItem& item)
    : dateTime(item.m_dtDateTime), milliseconds(item.m_nMilliseconds), resID(item.m_nResID), timeSpan(item.m_nTimeSpan),
      threadID(item.m_nThreadID), processID(item.m_nProcessID), level(item.m_eLevel), codeLine(item.m_nCodeLine),
      message(item.m_strDescription.View()), codeFile(item.m_strCodeFile.View()) {}

QzLogItem LogRecord::ToItem() const {
    QzLogItem item;
    item.m_dtDateTime = dateTime;
    item.m_nMilliseconds = milliseconds;
    item.m_nTimeSpan = timeSpan;
    item.m_nResID = resID;
    item.m_nThreadID = threadID;
    item.m_nProcessID = processID;
    item.m_eLevel = level;
    item.m_strDescription = KeldMBString(message);
    item.m_strCodeFile = KeldMBString(codeFile);
    item.m_nCodeLine = codeLine;
    return item;
}

} // namespace Qzc
