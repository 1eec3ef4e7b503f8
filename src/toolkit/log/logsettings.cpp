#include "toolkit/qzlogfile.h"

#include <algorithm>
#include <cstddef>

#include "stream/qztrace.h"
#include "toolkit/log/logdatetime.h"
#include "toolkit/log/logguard.h"
#include "toolkit/log/logstate.h"

namespace Qzc {

namespace {

// A log whose times nobody can read again is refused, with a line of trace.
bool IsReadable(const KeldMBString& dateTimeFormat, bool utc) {
    if (LogDateTimeReader::CanRead(dateTimeFormat, utc))
        return true;
    qztrace("times of the format \"%s\" cannot be read back from the log%s: refused\n", dateTimeFormat.Cstr(),
            utc ? " in UTC" : "");
    return false;
}

} // namespace

void QzLogFile::SetLevel(LogLevelType level) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_nLevel = level;
    m_state->PublishThreshold();
}

QzLogFile::LogLevelType QzLogFile::GetLevel() const {
    return static_cast<LogLevelType>(m_state->m_nLevel.load());
}

void QzLogFile::SetBlocked(unsigned char blocked) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_bBlocked = blocked;
    m_state->PublishThreshold();
}

unsigned char QzLogFile::IsBlocked() const {
    return m_state->m_bBlocked;
}

void QzLogFile::SetLogFormat(const KeldMBString& format) {
    const LogGuard guard(m_state->m_mutex);
    m_state->SetFormats(format, m_state->m_formats->dateTimeFormat, m_state->m_formats->utc);
}

KeldMBString QzLogFile::GetLogFormat() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_formats->lineFormat;
}

void QzLogFile::SetRecordOnlyLog() {
    SetLogFormat("%MSG");
}

KeldMBString QzLogFile::GetXMLLogFormat() const {
    return XmlLogFormatFor(GetLogFormat());
}

void QzLogFile::SetDateTimeFormat(const KeldMBString& format) {
    if (!IsReadable(format, IsUtc() != 0))
        return;
    const LogGuard guard(m_state->m_mutex);
    m_state->SetFormats(m_state->m_formats->lineFormat, format, m_state->m_formats->utc);
}

KeldMBString QzLogFile::GetDateTimeFormat() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_formats->dateTimeFormat;
}

void QzLogFile::SetUtc(unsigned char utc) {
    if (!IsReadable(GetDateTimeFormat(), utc != 0))
        return;
    const LogGuard guard(m_state->m_mutex);
    m_state->SetFormats(m_state->m_formats->lineFormat, m_state->m_formats->dateTimeFormat, utc != 0);
    m_state->m_rollover.SetUtc(utc != 0);
}

unsigned char QzLogFile::IsUtc() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_formats->utc ? 1 : 0;
}

void QzLogFile::SetRetention(int files, long long bytes) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_rollover.SetRetention(files, bytes);
}

void QzLogFile::SetFileSizeLimit(int bytes, SizeLimitMode mode) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_rollover.SetFileSizeLimit(bytes, mode);
}

int QzLogFile::GetFileSizeLimit() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_rollover.GetFileSizeLimit();
}

QzLogFile::SizeLimitMode QzLogFile::GetSizeLimitMode() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_rollover.GetSizeLimitMode();
}

void QzLogFile::SetTimeInterval(TimeInterval interval) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_rollover.SetTimeInterval(interval);
}

QzLogFile::TimeInterval QzLogFile::GetTimeInterval() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_rollover.GetTimeInterval();
}

void QzLogFile::SetLogCountInMemory(int count) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_nCountInMemory = static_cast<std::size_t>(std::max(count, 1));
}

void QzLogFile::SetLogCountToDisk(int count) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_nCountToDisk = static_cast<std::size_t>(std::max(count, 1));
}

void QzLogFile::SetQueryMaxNum(int count) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_nQueryMaxNum = static_cast<std::size_t>(std::max(count, 0));
}

void QzLogFile::SetSaveToPhysical(unsigned char save) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_bSaveToPhysical = save;
}

void QzLogFile::SetFilterRepeat(unsigned char filter) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_bFilterRepeat = filter;
}

void QzLogFile::SetReportRepeats(unsigned char report) {
    const LogGuard guard(m_state->m_mutex);
    m_state->m_bReportRepeats = report != 0 ? 1 : 0;
    if (report == 0)
        m_state->m_nRepeats = 0;
}

QzLogFile::Mode QzLogFile::GetMode() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_eMode;
}

KeldMBString QzLogFile::GetPrefix() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_rollover.GetPrefix();
}

KeldMBString QzLogFile::GetFileName() const {
    const LogGuard guard(m_state->m_mutex);
    return m_state->m_output.GetPath();
}

} // namespace Qzc
