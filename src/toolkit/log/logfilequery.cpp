#include "toolkit/log/logfilequery.h"

#include <algorithm>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include "toolkit/log/logcallbacks.h"
#include "toolkit/log/logclock.h"
#include "toolkit/log/loglinereader.h"
#include "toolkit/log/logreader.h"
#include "toolkit/log/logxmlreader.h"

namespace Qzc {

namespace {

std::int64_t LengthOf(const KeldMBString& path) {
    QzFile file;
    return file.Open(path, QzFile::Access::Read) ? std::max<std::int64_t>(file.GetLength(), 0) : 0;
}

} // namespace

bool IsXmlLog(QzFile& file) {
    std::string head(256, '\0');
    const bool there = file.Seek(0);
    head.resize(static_cast<std::size_t>(file.Read(head.data(), static_cast<std::int64_t>(head.size()))));
    return there && head.compare(0, 5, "<?xml") == 0 && head.find("<Log>") != std::string::npos;
}

std::unique_ptr<LogItemReader> MakeLogReader(bool isXml, const KeldMBString& lineFormat,
                                             const KeldMBString& dateTimeFormat, bool utc) {
    if (isXml)
        return std::make_unique<LogXmlReader>(dateTimeFormat, utc);
    return std::make_unique<LogLineReader>(lineFormat, dateTimeFormat, utc);
}

LogFileQuery::LogFileQuery(const QzLogQueryDef& query, std::size_t maxNum, const LogFormats& formats,
                           LogQueryCallBack callBack)
    : m_search(query, maxNum), m_callBack(callBack), m_lineFormat(formats.lineFormat),
      m_dateTimeFormat(formats.dateTimeFormat), m_utc(formats.utc) {}

bool LogFileQuery::Open(const KeldMBString& path) {
    m_path = path;
    if (!m_file.Open(path, QzFile::Access::Read))
        return false;
    m_position = m_length = m_file.GetLength();
    return m_length >= 0;
}

// The newest names first.
void LogFileQuery::AddRolledFiles(const LogFileNames& names) {
    std::vector<LogFileNames::Found> files = names.FindAll();
    std::sort(files.begin(), files.end(), [](const LogFileNames::Found& a, const LogFileNames::Found& b) {
        return std::tie(b.hasTime, b.time, b.number) < std::tie(a.hasTime, a.time, a.number);
    });
    for (LogFileNames::Found& file : files) {
        if (file.path != m_path)
            m_rolledFiles.push_back(std::move(file.path));
    }
}

bool LogFileQuery::Run() {
    m_total = m_length;
    for (const KeldMBString& path : m_rolledFiles)
        m_total += LengthOf(path);
    if (m_file.IsOpen())
        Read(m_file, m_position, m_length);
    for (auto path = m_rolledFiles.begin(); path != m_rolledFiles.end() && !m_stopped; ++path) {
        m_search.StartSource(GetLogTime());
        QzFile file;
        if (file.Open(*path, QzFile::Access::Read)) { // else it was removed meanwhile
            const std::int64_t length = file.GetLength();
            Read(file, length, length);
        }
    }
    return m_complete && !m_stopped;
}

void LogFileQuery::Read(QzFile& file, std::int64_t position, std::int64_t length) {
    const auto reader = MakeLogReader(IsXmlLog(file), m_lineFormat, m_dateTimeFormat, m_utc);
    LogFileReader items(file, *reader);
    const auto step = [this](std::int64_t bytes) { return Step(bytes); };
    // In a file that is being overwritten the oldest items stand behind the newest.
    if (items.Read(0, position, m_search, step) && position < length)
        items.Read(position, length, m_search, step);
    m_complete = m_complete && items.IsComplete();
}

bool LogFileQuery::Step(std::int64_t bytes) {
    m_done += bytes;
    if (m_callBack.function == nullptr)
        return true;
    try {
        const LogCallBackScope scope;
        m_stopped = m_callBack.function(m_callBack.context, m_done, m_total) == 0;
    } catch (...) { // nothing of the log's throws
        m_stopped = true;
    }
    return !m_stopped;
}

} // namespace Qzc
