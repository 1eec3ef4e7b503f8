#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "stream/qzfile.h"
#include "toolkit/log/logfilename.h"
#include "toolkit/log/logformats.h"
#include "toolkit/log/logitemreader.h"
#include "toolkit/log/logquerycallback.h"
#include "toolkit/log/logsearch.h"

namespace Qzc {

/// Whether a file starts as an XML log does; else its items are lines.
bool IsXmlLog(QzFile& file);
std::unique_ptr<LogItemReader> MakeLogReader(bool isXml, const KeldMBString& lineFormat,
                                             const KeldMBString& dateTimeFormat, bool utc);

/// A query of files, which has all that it needs of the log and so does not hold it up. One thread at a time; the query
/// and what it is asked for must outlive it.
class LogFileQuery {
public:
    LogFileQuery(const QzLogQueryDef& query, std::size_t maxNum, const LogFormats& formats, LogQueryCallBack callBack);

    LogSearch& Search() { return m_search; }

    bool Open(const KeldMBString& path); ///< the file, as long as it is now; false when that cannot be
    /// Where the newest items of the file end: behind them stand the oldest of a file that is being overwritten.
    void SetPosition(std::int64_t position) { m_position = position < m_length ? position : m_length; }
    void SetEnd(std::int64_t end) { m_position = m_length = end; } ///< what stands behind is not looked at
    void AddRolledFiles(const LogFileNames& names);                ///< the other files of its log
    /// False when not everything could be looked at that had to be.
    bool Run();

private:
    void Read(QzFile& file, std::int64_t position, std::int64_t length);
    bool Step(std::int64_t bytes);

    LogSearch m_search;
    LogQueryCallBack m_callBack;
    KeldMBString m_lineFormat;
    KeldMBString m_dateTimeFormat;
    bool m_utc;
    KeldMBString m_path;
    QzFile m_file;
    std::int64_t m_position = 0;
    std::int64_t m_length = 0;
    std::vector<KeldMBString> m_rolledFiles;
    std::int64_t m_done = 0;
    std::int64_t m_total = 0;
    bool m_complete = true;
    bool m_stopped = false;
};

} // namespace Qzc
