#include "toolkit/qzlogfollower.h"

#include <algorithm>
#include <deque>
#include <limits>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "stream/qzfile.h"
#include "toolkit/log/logclock.h"
#include "toolkit/log/logfilename.h"
#include "toolkit/log/logfilequery.h"
#include "toolkit/log/logreader.h"
#include "toolkit/log/logstate.h"
#include "toolkit/qzlogfile.h"

namespace Qzc {

namespace {

constexpr std::int64_t StepSize = std::int64_t{1} << 24;
constexpr std::int64_t SearchSize = 1 << 16;
constexpr std::int64_t NamesInterval = 1000; ///< ms between two looks at the directory
// The log may write to a file for half a second after it was renamed, and another process of it longer than one.
constexpr std::int64_t LastWrites = 700;

/// A reader of items that are known to begin where the text does.
class FromStart : public LogItemReader {
public:
    explicit FromStart(std::unique_ptr<LogItemReader> reader) : m_reader(std::move(reader)) {}

    bool KnowsStart() const override { return true; }
    bool StartsItem(std::string_view text) override { return m_reader->StartsItem(text); }
    const LogReading* Start() const override { return m_reader->Start(); }
    LogKnown KnownAtStart() const override { return m_reader->KnownAtStart(); }
    bool Read(std::string_view text, LogReading& reading) override { return m_reader->Read(text, reading); }

private:
    std::unique_ptr<LogItemReader> m_reader;
};

/// Behind the last `what` between two offsets; `from` when there is none.
std::int64_t EndOfLast(QzFile& file, std::string_view what, std::int64_t from, std::int64_t to) {
    const auto overlap = static_cast<std::int64_t>(what.size()) - 1;
    std::string bytes;
    while (to > from) {
        const std::int64_t start = std::max(from, to - SearchSize);
        bytes.resize(static_cast<std::size_t>(to - start));
        if (!file.Seek(start) || file.Read(bytes.data(), to - start) != to - start)
            break;
        const std::size_t found = bytes.rfind(what);
        if (found != std::string::npos)
            return start + static_cast<std::int64_t>(found + what.size());
        if (start == from)
            break;
        to = start + overlap;
    }
    return from;
}

} // namespace

class QzLogFollower::Body {
public:
    explicit Body(const KeldMBString& path)
        : m_path(AbsoluteLogPath(path)), m_names(LogFileNames::Of(m_path)),
          m_lineFormat(QzLogFile::GetInstance(false).GetLogFormat()),
          m_dateTimeFormat(QzLogFile::GetInstance(false).GetDateTimeFormat()),
          m_utc(QzLogFile::GetInstance(false).IsUtc() != 0) {
        for (const LogFileNames::Found& file : m_names.FindAll())
            m_known.insert(file.path);
    }

    unsigned char Next(const QzLogQueryDef& query, KeldArray<QzLogItem>& items);
    const KeldMBString& Path() const { return m_path; }

private:
    std::int64_t EndOfItems();
    void ReadNew(const QzLogQueryDef& query, KeldArray<QzLogItem>& items);
    void FindNewNames();
    bool GoOn();

    KeldMBString m_path;
    LogFileNames m_names;
    KeldMBString m_lineFormat;
    KeldMBString m_dateTimeFormat;
    bool m_utc;
    std::set<KeldMBString> m_known; ///< files that are none that the log goes on in
    std::deque<KeldMBString> m_next;
    std::int64_t m_namesLookedAt = 0;
    std::int64_t m_leftAt = -1; ///< when the file was first seen to be no longer at its path
    QzFile m_file;
    std::int64_t m_position = 0;
    bool m_isXml = false;
    bool m_isFirst = true;
};

// Text ends with its last line; an XML log with the end tag, in whose place the next items come.
std::int64_t QzLogFollower::Body::EndOfItems() {
    const std::int64_t length = m_file.GetLength();
    if (length < m_position)
        m_position = 0;
    if (m_position == 0)
        m_isXml = IsXmlLog(m_file);
    const std::int64_t most = m_isFirst ? length : std::min(length, m_position + StepSize);
    const std::string_view end = m_isXml ? "</LogItem>\r\n" : "\n";
    const std::int64_t found = EndOfLast(m_file, end, m_position, most);
    return found == m_position && most < length ? EndOfLast(m_file, end, m_position, length) : found;
}

void QzLogFollower::Body::ReadNew(const QzLogQueryDef& query, KeldArray<QzLogItem>& items) {
    const std::int64_t end = EndOfItems();
    FromStart fromStart(MakeLogReader(m_isXml, m_lineFormat, m_dateTimeFormat, m_utc));
    LogSearch search(query, std::numeric_limits<std::size_t>::max());
    search.StartSource(GetLogTime());
    LogFileReader(m_file, fromStart).Read(m_position, end, search, [](std::int64_t) { return true; });
    search.Give(items);
    m_position = end;
}

void QzLogFollower::Body::FindNewNames() {
    const std::int64_t now = KeldTime::GetMilliseconds();
    if (now - m_namesLookedAt < NamesInterval)
        return;
    m_namesLookedAt = now;
    std::vector<LogFileNames::Found> added;
    for (LogFileNames::Found& file : m_names.FindAll()) {
        if (m_known.insert(file.path).second && !m_file.IsAt(file.path)) // which was given another name
            added.push_back(std::move(file));
    }
    std::sort(added.begin(), added.end(), [](const LogFileNames::Found& a, const LogFileNames::Found& b) {
        return std::tie(a.hasTime, a.time, a.number) < std::tie(b.hasTime, b.time, b.number);
    });
    for (LogFileNames::Found& file : added) {
        if (file.path != m_path)
            m_next.push_back(std::move(file.path));
    }
}

// When the file has given all that it had: whether there is another one to read.
bool QzLogFollower::Body::GoOn() {
    const std::int64_t now = KeldTime::GetMilliseconds();
    FindNewNames();
    if (m_next.empty() && m_file.IsOpen() && m_file.IsAt(m_path)) {
        m_leftAt = -1;
        return false;
    }
    if (m_leftAt < 0)
        m_leftAt = now;
    if (m_file.IsOpen() && now - m_leftAt < LastWrites)
        return false;
    const KeldMBString path = m_next.empty() ? m_path : m_next.front();
    if (!QzFile::IsExist(path) || !m_file.Open(path, QzFile::Access::Read))
        return false;
    if (!m_next.empty())
        m_next.pop_front();
    m_path = path;
    m_position = 0;
    m_leftAt = -1;
    return true;
}

unsigned char QzLogFollower::Body::Next(const QzLogQueryDef& query, KeldArray<QzLogItem>& items) {
    items.RemoveAll();
    if (m_isFirst) {
        if (!m_file.Open(m_path, QzFile::Access::Read))
            return 0;
        const std::unique_ptr<LogFileQuery> search = QzLogFile::State::FileQuery(query);
        m_position = EndOfItems();
        search->Search().StartSource(GetLogTime());
        if (!search->Open(m_path))
            return 0;
        search->SetEnd(m_position); // what is written meanwhile is for the next call
        if (query.m_bRolledFiles != 0)
            search->AddRolledFiles(m_names);
        search->Run();
        search->Search().Give(items);
        m_isFirst = false;
        return 1;
    }
    ReadNew(query, items);
    while (items.IsEmpty() && GoOn())
        ReadNew(query, items);
    return 1;
}

QzLogFollower::QzLogFollower(const KeldMBString& path) : m_body(new Body(path)) {}
QzLogFollower::~QzLogFollower() = default;

unsigned char QzLogFollower::Next(const QzLogQueryDef& query, KeldArray<QzLogItem>& items) try {
    return m_body->Next(query, items);
} catch (const std::bad_alloc&) {
    return 0;
}

KeldMBString QzLogFollower::GetFileName() const {
    return m_body->Path();
}

} // namespace Qzc
