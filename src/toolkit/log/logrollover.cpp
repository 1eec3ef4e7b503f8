#include "toolkit/log/logrollover.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/directory.h"
#include "stream/qzfile.h"
#include "toolkit/log/logclock.h"

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

std::int64_t SecondsOf(QzLogFile::TimeInterval interval) {
    constexpr std::int64_t HourSeconds = 3600;
    constexpr std::int64_t DaySeconds = 24 * HourSeconds;
    switch (interval) {
    case QzLogFile::Hour: return HourSeconds;
    case QzLogFile::Day: return DaySeconds;
    case QzLogFile::Week: return 7 * DaySeconds;
    default: return 31 * DaySeconds;
    }
}

} // namespace

bool LogRollover::Open(LogOutput& output, const KeldMBString& path, LogOutput::Form form, LogOutput::Start start,
                       bool isDefaultName) {
    QzFile::SplitPath(path, m_names.directory, m_names.prefix, m_names.extension);
    m_names.isDefault = isDefaultName;
    if (isDefaultName)
        m_names.prefix = "Log";
    const KeldTime now = GetLogTime();
    StartPeriod(now);
    m_strNumberedPath = m_names.First(now);
    m_nFileNumber = 0;
    const bool opened = isDefaultName ? OpenDefault(output, form, start) : output.Open(path, form, start);
    if (opened)
        RemoveOldFiles(output);
    return opened;
}

// Two programs that start in one second are not to meet in one file.
bool LogRollover::OpenDefault(LogOutput& output, LogOutput::Form form, LogOutput::Start start) {
    for (;; ++m_nFileNumber) {
        const KeldMBString path = NumberedLogName(m_strNumberedPath, m_nFileNumber);
        if (path == m_strOwnDefault && QzFile::IsExist(path))
            return output.Open(path, form, start);
        if (output.Open(path, form, LogOutput::Start::New)) {
            m_strOwnDefault = path;
            return true;
        }
        if (!QzFile::IsExist(path))
            return false;
    }
}

void LogRollover::SetTimeInterval(QzLogFile::TimeInterval interval) {
    m_eTimeInterval = interval;
    StartPeriod(GetLogTime());
}

void LogRollover::SetFileSizeLimit(int bytes, QzLogFile::SizeLimitMode mode) {
    m_nFileSizeLimit = bytes;
    m_eSizeLimitMode = mode;
}

void LogRollover::SetRetention(int files, std::int64_t bytes) {
    m_nRetainedFiles = std::max(files, 0);
    m_nRetainedBytes = std::max<std::int64_t>(bytes, 0);
}

void LogRollover::SetUtc(bool utc) {
    m_names.utc = utc;
    StartPeriod(GetLogTime());
}

void LogRollover::StartPeriod(KeldTime now) {
    m_lastPeriodCheck = now;
    m_strPeriod = PeriodOf(now, m_names.utc);
}

KeldMBString LogRollover::PeriodOf(KeldTime time, bool utc) const {
    return FormatLogTime(time, PeriodFormat(m_eTimeInterval), utc);
}

void LogRollover::DealTimeInterval(LogOutput& output) {
    if (m_eTimeInterval == QzLogFile::None)
        return;
    const KeldTime now = GetLogTime();
    if (now == m_lastPeriodCheck)
        return;
    if (now < m_lastPeriodCheck) {
        // A clock that is put right by a little goes through the end of the interval again, which must not make
        // another file each time.
        if (m_lastPeriodCheck.GetTime() - now.GetTime() > SecondsOf(m_eTimeInterval))
            StartPeriod(now);
        return;
    }
    const KeldMBString before = m_strPeriod;
    StartPeriod(now);
    if (m_strPeriod != before)
        GoOnAtTime(output, now);
}

void LogRollover::DealFileSizeLimit(LogOutput& output, std::int64_t now) {
    if (m_nFileSizeLimit <= 0 || !output.IsLongerThan(m_nFileSizeLimit, now))
        return;
    switch (m_eSizeLimitMode) {
    case QzLogFile::Rolling: output.Rewind(); break;
    case QzLogFile::ReOpen:
        output.LockChanges();
        if (output.GetLength() > m_nFileSizeLimit) // nobody else was faster
            output.StartAfresh();
        output.UnlockChanges();
        break;
    case QzLogFile::NewFile: GoOnInNext(output); break;
    }
}

void LogRollover::GoOnAtTime(LogOutput& output, KeldTime now) {
    LogOutput next;
    output.LockChanges();
    m_strNumberedPath = FindFellow(output);
    m_nFileNumber = 0;
    if (m_strNumberedPath.IsEmpty() ||
        !next.Open(m_strNumberedPath, output.GetForm(), LogOutput::Start::Append, output.GetCharset())) {
        m_strNumberedPath = m_names.OfTime(now);
        OpenNext(next, output.GetForm(), output.GetCharset());
    }
    output = std::move(next); // which unlocks
    RemoveOldFiles(output);
}

void LogRollover::GoOnInNext(LogOutput& output) {
    LogOutput next;
    output.LockChanges();
    ++m_nFileNumber;
    OpenNext(next, output.GetForm(), output.GetCharset());
    output = std::move(next);
    RemoveOldFiles(output);
}

// The first name from the present number on that is free, or that another process goes on in. Where no file can be
// made, the name is kept for later.
void LogRollover::OpenNext(LogOutput& next, LogOutput::Form form, KELDCharset::Charset charset) {
    for (;; ++m_nFileNumber) {
        const KeldMBString path = NumberedLogName(m_strNumberedPath, m_nFileNumber);
        if (next.Open(path, form, LogOutput::Start::New, charset) || !QzFile::IsExist(path))
            return;
        if (LogOutput::IsOpenElsewhere(path, m_names.isDefault) &&
            next.Open(path, form, LogOutput::Start::Append, charset) &&
            (m_nFileSizeLimit <= 0 || next.GetLength() <= m_nFileSizeLimit))
            return;
    }
}

// The file that another process has gone on in since the interval began. Programs that have a default name each stay
// apart.
KeldMBString LogRollover::FindFellow(const LogOutput& output) const {
    KeldMBString first;
    for (const LogFileNames::Found& found : m_names.FindAll()) {
        if (found.hasTime && PeriodOf(found.time, false) == m_strPeriod && found.path != output.GetPath() &&
            (first.IsEmpty() || found.path < first) && LogOutput::IsOpenElsewhere(found.path, m_names.isDefault))
            first = found.path;
    }
    return first;
}

// The newest are kept, and those that are in use.
void LogRollover::RemoveOldFiles(const LogOutput& output) const {
    if (m_nRetainedFiles == 0 && m_nRetainedBytes == 0)
        return;
    struct Candidate {
        std::int64_t time = 0;
        std::int64_t bytes = 0;
        KeldMBString path;
    };
    std::vector<Candidate> candidates;
    for (const LogFileNames::Found& found : m_names.FindAll()) {
        Candidate candidate;
        if (found.path != output.GetPath() && Platform::FileAge(found.path.Cstr(), candidate.time, candidate.bytes)) {
            candidate.path = found.path;
            candidates.push_back(std::move(candidate));
        }
    }
    std::sort(candidates.begin(), candidates.end(), [](const Candidate& a, const Candidate& b) {
        return a.time != b.time ? a.time > b.time : b.path < a.path;
    });
    int files = 0;
    std::int64_t bytes = 0;
    for (const Candidate& candidate : candidates) {
        ++files;
        bytes += candidate.bytes;
        const bool isKept = (m_nRetainedFiles == 0 || files <= m_nRetainedFiles) &&
                            (m_nRetainedBytes == 0 || bytes <= m_nRetainedBytes);
        if (!isKept && !LogOutput::IsOpenElsewhere(candidate.path, false))
            QzFile::Remove(candidate.path);
    }
}

} // namespace Qzc
