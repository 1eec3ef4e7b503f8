#include "toolkit/log/logrollover.h"

#include "stream/qzfile.h"
#include "toolkit/log/logclock.h"
#include "toolkit/log/logfilename.h"

namespace Qzc {

namespace {

// What changes when the interval ends.
const char* PeriodFormat(QzLogFile::TimeInterval interval) {
    switch (interval) {
    case QzLogFile::Hour: return "%Y-%m-%d %H";
    case QzLogFile::Day: return "%Y-%m-%d";
    case QzLogFile::Week: return "%G-%V"; // ISO weeks start on Monday
    case QzLogFile::Month: return "%Y-%m";
    default: return "";
    }
}

} // namespace

bool LogRollover::Open(LogOutput& output, const KeldMBString& path, LogOutput::Form form, LogOutput::Start start,
                       bool isDefaultName) {
    m_isDefaultName = isDefaultName;
    QzFile::SplitPath(path, m_strDirectory, m_strPrefix, m_strExtension);
    if (isDefaultName)
        m_strPrefix = "Log";
    return OpenFile(output, path, form, start);
}

bool LogRollover::OpenFile(LogOutput& output, const KeldMBString& path, LogOutput::Form form, LogOutput::Start start) {
    StartPeriod(GetLogTime());
    m_strNumberedPath = path;
    m_nFileNumber = 0;
    return output.Open(path, form, start);
}

void LogRollover::SetTimeInterval(QzLogFile::TimeInterval interval) {
    m_eTimeInterval = interval;
    StartPeriod(GetLogTime());
}

void LogRollover::SetFileSizeLimit(int bytes, QzLogFile::SizeLimitMode mode) {
    m_nFileSizeLimit = bytes;
    m_eSizeLimitMode = mode;
}

void LogRollover::StartPeriod(KeldTime now) {
    m_lastPeriodCheck = now;
    m_strPeriod = now.Format(PeriodFormat(m_eTimeInterval));
}

KeldMBString LogRollover::TimeNamedPath(KeldTime now) const {
    if (m_isDefaultName)
        return m_strDirectory + DefaultLogName(now);
    return m_strDirectory + m_strPrefix + now.Format("_%Y-%m-%d_%H-%M-%S") + m_strExtension;
}

void LogRollover::DealTimeInterval(LogOutput& output) {
    if (m_eTimeInterval == QzLogFile::None)
        return;
    const KeldTime now = GetLogTime();
    if (now == m_lastPeriodCheck)
        return;
    const KeldMBString before = m_strPeriod;
    StartPeriod(now);
    if (m_strPeriod == before)
        return;
    KeldMBString path = TimeNamedPath(now);
    int number = 0;
    if (QzFile::IsExist(path))
        path = NextNumberedLogName(path, number);
    OpenFile(output, path, output.GetForm(), LogOutput::Start::Append);
}

void LogRollover::DealFileSizeLimit(LogOutput& output) {
    if (m_nFileSizeLimit <= 0 || output.GetLength() <= m_nFileSizeLimit)
        return;
    const LogOutput::Form form = output.GetForm();
    const KeldMBString path = output.GetPath();
    switch (m_eSizeLimitMode) {
    case QzLogFile::Rolling:
        if (form == LogOutput::Form::Text)
            output.Rewind();
        break;
    case QzLogFile::ReOpen: output.Open(path, form, LogOutput::Start::Afresh); break;
    case QzLogFile::NewFile:
        output.Open(NextNumberedLogName(m_strNumberedPath, m_nFileNumber), form, LogOutput::Start::Append);
        break;
    }
}

} // namespace Qzc
