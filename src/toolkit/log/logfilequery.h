#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "stream/qzfile.h"
#include "toolkit/log/logformats.h"
#include "toolkit/log/logquerycallback.h"
#include "toolkit/log/logsearch.h"

namespace Qzc {

/// A query of files, which has all that it needs of the log and so does not hold it up. One thread at a time; the query
/// and what it is asked for must outlive it.
class LogFileQuery {
public:
    static constexpr std::int64_t Whole = std::numeric_limits<std::int64_t>::max();

    LogFileQuery(const QzLogQueryDef& query, std::size_t maxNum, const LogFormats& formats, LogQueryCallBack callBack);

    LogSearch& Search() { return m_search; }

    /// The file, as long as it is now, of which the newest items end at `position`: behind it stand the oldest of a
    /// file that is being overwritten. False when it cannot be opened.
    bool Open(const KeldMBString& path, std::int64_t position);
    /// The other files of its log. Without a prefix it is made of the file's own name.
    void AddRolledFiles(const KeldMBString& path, const KeldMBString& prefix);
    /// False when not everything could be looked at that had to be.
    bool Run();

private:
    void Read(QzFile& file, std::int64_t position, std::int64_t length);
    bool Step(std::int64_t bytes);

    LogSearch m_search;
    LogQueryCallBack m_callBack;
    KeldMBString m_lineFormat;
    KeldMBString m_dateTimeFormat;
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
