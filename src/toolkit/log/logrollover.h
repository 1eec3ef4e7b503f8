#pragma once

#include "base/keldmbstring.h"
#include "base/keldtime.h"
#include "base/namespaces.h"
#include "toolkit/log/logoutput.h"
#include "toolkit/qzlogfile.h"

namespace Qzc {

/// Opens the log's file, and goes on in another when its time or its length is over. One thread at a time.
class LogRollover {
public:
    /// An absolute path and its name's prefix. `isDefaultName`: later files are given the default name of their time.
    bool Open(LogOutput& output, const KeldMBString& path, LogOutput::Form form, LogOutput::Start start,
              bool isDefaultName);

    void SetTimeInterval(QzLogFile::TimeInterval interval); ///< the period that is now becomes the current one
    QzLogFile::TimeInterval GetTimeInterval() const { return m_eTimeInterval; }
    void SetFileSizeLimit(int bytes, QzLogFile::SizeLimitMode mode);
    int GetFileSizeLimit() const { return m_nFileSizeLimit; }
    QzLogFile::SizeLimitMode GetSizeLimitMode() const { return m_eSizeLimitMode; }
    const KeldMBString& GetPrefix() const { return m_strPrefix; }

    /// Before each write, in this order.
    void DealTimeInterval(LogOutput& output);
    void DealFileSizeLimit(LogOutput& output);

private:
    bool OpenFile(LogOutput& output, const KeldMBString& path, LogOutput::Form form, LogOutput::Start start);
    void StartPeriod(KeldTime now);
    KeldMBString TimeNamedPath(KeldTime now) const;

    int m_nFileSizeLimit = -1;
    QzLogFile::SizeLimitMode m_eSizeLimitMode = QzLogFile::Rolling;
    QzLogFile::TimeInterval m_eTimeInterval = QzLogFile::None;
    KeldTime m_lastPeriodCheck;
    KeldMBString m_strPeriod;

    KeldMBString m_strDirectory; ///< the file's, with a separator at its end
    KeldMBString m_strPrefix{"Log"};
    KeldMBString m_strExtension;
    bool m_isDefaultName = false;
    KeldMBString m_strNumberedPath; ///< what the names of new files are numbered from, and the last number
    int m_nFileNumber = 0;
};

} // namespace Qzc
