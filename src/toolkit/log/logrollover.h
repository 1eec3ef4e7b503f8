#pragma once

#include <cstdint>

#include "base/keldmbstring.h"
#include "base/keldtime.h"
#include "base/namespaces.h"
#include "toolkit/log/logfilename.h"
#include "toolkit/log/logoutput.h"
#include "toolkit/qzlogfile.h"

namespace Qzc {

/// Opens the log's file, and goes on in another when its time or its length is over. Logs in several processes that
/// have one file go on in one: who comes second finds the file that the first has made, by the mark that an open log
/// puts on its file. One thread at a time.
class LogRollover {
public:
    /// A file by its absolute path. With `isDefaultName` the path is that of the directory, with a separator at its
    /// end; the file is a new one, and so are later ones.
    bool Open(LogOutput& output, const KeldMBString& path, LogOutput::Form form, LogOutput::Start start,
              bool isDefaultName);

    void SetTimeInterval(QzLogFile::TimeInterval interval); ///< the period that is now becomes the current one
    QzLogFile::TimeInterval GetTimeInterval() const { return m_eTimeInterval; }
    void SetFileSizeLimit(int bytes, QzLogFile::SizeLimitMode mode);
    int GetFileSizeLimit() const { return m_nFileSizeLimit; }
    QzLogFile::SizeLimitMode GetSizeLimitMode() const { return m_eSizeLimitMode; }
    void SetRetention(int files, std::int64_t bytes);
    void SetUtc(bool utc);
    const KeldMBString& GetPrefix() const { return m_names.prefix; }
    const LogFileNames& GetNames() const { return m_names; }

    /// Before each write, in this order; `now` is the millisecond clock's.
    void DealTimeInterval(LogOutput& output);
    void DealFileSizeLimit(LogOutput& output, std::int64_t now);

private:
    bool OpenDefault(LogOutput& output, LogOutput::Form form, LogOutput::Start start);
    void StartPeriod(KeldTime now);
    KeldMBString PeriodOf(KeldTime time, bool utc) const;
    void GoOnAtTime(LogOutput& output, KeldTime now);
    void GoOnInNext(LogOutput& output);
    void OpenNext(LogOutput& next, LogOutput::Form form, KELDCharset::Charset charset);
    KeldMBString FindFellow(const LogOutput& output) const;
    void RemoveOldFiles(const LogOutput& output) const;

    int m_nFileSizeLimit = -1;
    QzLogFile::SizeLimitMode m_eSizeLimitMode = QzLogFile::Rolling;
    QzLogFile::TimeInterval m_eTimeInterval = QzLogFile::None;
    int m_nRetainedFiles = 0;
    std::int64_t m_nRetainedBytes = 0;
    KeldTime m_lastPeriodCheck;
    KeldMBString m_strPeriod;

    LogFileNames m_names{KeldMBString(), "Log", KeldMBString(), false, false};
    KeldMBString m_strNumberedPath; ///< what the names of new files are numbered from, and the last number
    int m_nFileNumber = 0;
    KeldMBString m_strOwnDefault; ///< the last file of a default name that this process has made
};

} // namespace Qzc
