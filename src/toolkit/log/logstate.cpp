#include "toolkit/log/logstate.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "toolkit/log/logcallbacks.h"
#include "toolkit/log/logclock.h"
#include "toolkit/log/logguard.h"
#include "toolkit/log/lognames.h"
#include "toolkit/qzerrorobj.h"
#include "toolkit/qzlogitem.h"
#include "toolkit/qzregistry.h"
#include "toolkit/qzthread.h"

namespace Qzc {

void QzLogFile::State::SetDefaultSetting() {
    SetFormats("%DATETIME| %TIMESPAN| %RESID| %THREADID| %LEVEL| %MSG| %CODEFILE(%CODELINE)", "%Y-%m-%d %H:%M:%S",
               false);
    const KeldMBString infoID = QzRegistry::Root().Obj("LogSetting")["InfoID"];
    if (!infoID.IsEmpty())
        m_arrInfoID.push_back(static_cast<int>(std::strtol(infoID.Cstr(), nullptr, 10)));
    PublishThreshold();
}

void QzLogFile::State::SetFormats(const KeldMBString& line, const KeldMBString& dateTime, bool utc) {
    m_formats = std::make_shared<LogFormats>(line, dateTime, utc);
}

bool QzLogFile::State::Takes(LogLevelType level, int code) const {
    if (m_bBlocked.load(std::memory_order_relaxed) != 0)
        return false;
    return level >= m_nLevel.load(std::memory_order_relaxed) || level >= error ||
           std::find(m_arrInfoID.begin(), m_arrInfoID.end(), code) != m_arrInfoID.end();
}

void QzLogFile::State::PublishThreshold() {
    constexpr int Nothing = std::numeric_limits<int>::max();
    const bool blocked = m_bBlocked.load(std::memory_order_relaxed) != 0;
    QzLogFile::ms_nThreshold = blocked ? Nothing : std::min<int>(m_nLevel, error);
    QzLogFile::ms_bHasCodes = !blocked && !m_arrInfoID.empty();
}

// ---- Recording

// The whole way of an item that passes the threshold. True when it was recorded, and written if that was due.
bool QzLogFile::State::Record(LogLevelType level, int code, const KeldMBString& message, std::string_view codeFile,
                              int codeLine) {
    const bool filters = m_bFilterRepeat.load(std::memory_order_relaxed) != 0;
    const std::uint32_t hash = filters ? RepeatFilter::Hash(message) : 0;
    const auto echo = LogCallBackScope::IsInside() ? nullptr : LogCallBacks::ms_echo.load();
    Delivery delivery;
    std::string line;
    bool written = true;
    {
        const LogGuard guard(m_mutex);
        LogRecord record;
        record.message = message.View();
        record.resID = code;
        record.codeFile = codeFile;
        record.codeLine = codeLine;
        record.level = level;
        Stamp(record);
        if (filters && m_repeats.IsFilterRepeat(message.View(), hash, codeFile, codeLine)) {
            m_nRepeats += m_bReportRepeats;
            return false;
        }
        m_repeats.SetLast(message.View(), codeFile, codeLine);
        if (level >= error)
            QzErrorObj::GetInstance().Add(code, message, KeldMBString(codeFile), codeLine);
        if (echo != nullptr)
            m_formats->lineLayout.Append(line, record);
        written = Append(record, delivery);
    }
    if (echo != nullptr) {
        const LogCallBackScope scope;
        try {
            echo(line.c_str());
        } catch (...) { // its own affair: the item is recorded
        }
    }
    return Deliver(delivery) && written;
}

// When, and by whom.
void QzLogFile::State::Stamp(LogRecord& record) const {
    if (m_formats->lineLayout.HasThreadID())
        record.threadID = QzThread::GetCurrentThreadId();
    if (m_formats->lineLayout.HasProcessID())
        record.processID = Platform::CurrentProcessId();
    record.dateTime = GetLogTime(record.milliseconds);
    record.timeSpan = KeldTime::GetMilliseconds();
}

// Takes the item into the batch, and writes the batch when it is full.
bool QzLogFile::State::Append(const LogRecord& record, Delivery& delivery) {
    AddRepeatsReport();
    if (m_nCountToDisk == 1 && m_pending.IsEmpty() && m_nLost == 0 && WritesFile()) {
        // A batch of this one item, which need not be copied to wait for others.
        if (WriteRecord(record))
            return true;
        m_pending.Add(record, m_formats);
        DropOldest();
        return false;
    }
    m_pending.Add(record, m_formats);
    const bool isFull =
        m_pending.GetCount() >= std::min(m_nCountToDisk, m_nCountInMemory) || m_pending.GetBytes() > BytesInMemory / 2;
    return !isFull || Write(delivery);
}

// An item of the log's own.
LogRecord QzLogFile::State::OwnRecord(const KeldMBString& message, LogLevelType level) const {
    LogRecord record;
    Stamp(record);
    record.level = level;
    record.message = message.View();
    return record;
}

void QzLogFile::State::AddRepeatsReport() {
    if (m_nRepeats == 0)
        return;
    KeldMBString message;
    message.Format("%lld repeats were left out", static_cast<long long>(std::exchange(m_nRepeats, 0)));
    m_pending.Add(OwnRecord(message, info), m_formats);
}

KeldMBString QzLogFile::State::LossMessage() const {
    KeldMBString message;
    message.Format("%lld items were lost: they could not be written", static_cast<long long>(m_nLost));
    return message;
}

// ---- The bounds

// Not while items are meant to stay in memory.
bool QzLogFile::State::IsWritingAwaited() const {
    if (HasFile())
        return m_bSaveToPhysical != 0;
    return m_eMode == Database &&
           (LogCallBacks::ms_write.load() != nullptr || LogCallBacks::ms_writeAll.load() != nullptr);
}

void QzLogFile::State::DropOldest() {
    std::size_t dropped = 0;
    if (m_pending.GetCount() > m_nCountInMemory) {
        dropped = m_pending.GetCount() - m_nCountInMemory;
        m_pending.DropOldest(dropped);
    }
    for (; m_pending.GetBytes() > BytesInMemory && m_pending.GetCount() > 1; ++dropped)
        m_pending.DropOldest(1);
    if (IsWritingAwaited())
        m_nLost += static_cast<std::int64_t>(dropped);
}

// What very long messages have left behind.
void QzLogFile::State::ReleaseBuffer() {
    if (m_buffer.capacity() > 4 * WriteSize)
        m_buffer = std::string();
}

// ---- Writing

// Writes to the file, or takes what the caller is to hand to the call-backs. True also when the items are to
// stay in memory.
bool QzLogFile::State::Write(Delivery& delivery) {
    bool written = true;
    if (HasFile()) {
        if (WritesFile())
            written = WriteFile();
    } else if (!LogCallBackScope::IsInside() &&
               (LogCallBacks::ms_write.load() != nullptr || LogCallBacks::ms_writeAll.load() != nullptr)) {
        if (m_nLost != 0 && !m_pending.IsEmpty()) {
            LogBacklog report;
            const KeldMBString message = LossMessage();
            report.Add(OwnRecord(message, warning), m_formats);
            m_pending.Prepend(std::move(report));
            delivery.lost = std::exchange(m_nLost, 0);
        }
        delivery.items = std::make_unique<LogBacklog>(std::move(m_pending));
        m_pending.Clear();
        delivery.dataSource = m_pDataSource;
    }
    DropOldest();
    return written;
}

bool QzLogFile::State::WriteRecord(const LogRecord& record) {
    m_rollover.DealTimeInterval(m_output);
    m_rollover.DealFileSizeLimit(m_output, record.timeSpan);
    m_buffer.clear();
    m_formats->AppendWhole(m_buffer, record, m_output.GetForm(), m_output.GetCharset());
    m_failing = !m_output.Write(m_buffer, record.timeSpan);
    ReleaseBuffer();
    return !m_failing;
}

bool QzLogFile::State::WriteFile() {
    if (m_pending.IsEmpty() && m_nLost == 0)
        return true;
    const std::int64_t now = KeldTime::GetMilliseconds();
    m_rollover.DealTimeInterval(m_output);
    m_rollover.DealFileSizeLimit(m_output, now);
    // While writing fails each attempt costs one item's formatting, however many wait. Once it works again, the steps
    // grow, and where the disk is nearly full they shrink until not even one item has room.
    constexpr std::size_t Factor = 8;
    std::size_t size = m_failing ? 1 : WriteSize;
    do {
        m_buffer.clear();
        if (m_nLost != 0)
            m_formats->AppendWhole(m_buffer, OwnRecord(LossMessage(), warning), m_output.GetForm(),
                                   m_output.GetCharset());
        const std::size_t count = FormatPending(size);
        m_failing = !m_output.Write(m_buffer, now);
        if (!m_failing) {
            m_nLost = 0;
            m_pending.DropOldest(count);
            size = std::min(size * Factor, WriteSize);
        } else if (count > 1) {
            size = std::min(size, m_buffer.size()) / Factor;
        } else {
            ReleaseBuffer();
            return false;
        }
    } while (!m_pending.IsEmpty());
    ReleaseBuffer();
    return true;
}

// Puts items behind what is in the buffer until that has the size, at least one if there is any. Their number.
std::size_t QzLogFile::State::FormatPending(std::size_t size) {
    std::size_t count = 0;
    m_pending.Visit([&](const LogRecord& record, LogFormats& formats) {
        formats.AppendWhole(m_buffer, record, m_output.GetForm(), m_output.GetCharset());
        ++count;
        return m_buffer.size() < size;
    });
    return count;
}

// Outside the mutex. What the call-backs do not take goes back into memory.
bool QzLogFile::State::Deliver(Delivery& delivery) {
    if (delivery.items == nullptr || delivery.items->IsEmpty())
        return true;
    LogBacklog& waiting = *delivery.items;
    const auto takeAll = LogCallBacks::ms_writeAll.load();
    const auto takeOne = LogCallBacks::ms_write.load();
    std::size_t taken = 0;
    try {
        const LogCallBackScope scope;
        if (takeAll != nullptr) {
            KeldArray<QzLogItem> items;
            items.Reserve(static_cast<int>(waiting.GetCount()));
            waiting.Visit([&](const LogRecord& record, const LogFormats&) {
                items.Add(record.ToItem());
                return true;
            });
            if (takeAll(delivery.dataSource, items) != 0)
                taken = waiting.GetCount();
        } else if (takeOne != nullptr) {
            waiting.Visit([&](const LogRecord& record, const LogFormats&) {
                const bool isTaken = takeOne(delivery.dataSource, record.ToItem()) != 0;
                taken += isTaken ? 1 : 0;
                return isTaken;
            });
        }
    } catch (...) { // what it was called for counts as refused
    }
    waiting.DropOldest(taken);
    if (waiting.IsEmpty())
        return true;
    if (delivery.lost != 0 && taken == 0)
        waiting.DropOldest(1); // the report, which is made anew
    const LogGuard guard(m_mutex);
    m_nLost += taken == 0 ? delivery.lost : 0;
    m_pending.Prepend(std::move(waiting));
    DropOldest();
    return false;
}

std::string QzLogFile::State::Describe(int items) const {
    KeldMBString text;
    text.Format("log %s, mode %s, level %d%s\n"
                "file \"%s\", %lld bytes, limit %d (%s), interval %d\n"
                "line format \"%s\", date-time format \"%s\"\n"
                "%zu items pending (batch %zu, at most %zu)%s\n",
                m_bOpen != 0 ? "open" : "closed", ModeName(m_eMode), m_nLevel.load(),
                m_bBlocked != 0 ? ", blocked" : "", m_output.GetPath().Cstr(),
                static_cast<long long>(m_output.GetLength()), m_rollover.GetFileSizeLimit(),
                SizeLimitModeName(m_rollover.GetSizeLimitMode()), static_cast<int>(m_rollover.GetTimeInterval()),
                m_formats->lineFormat.Cstr(), m_formats->dateTimeFormat.Cstr(), m_pending.GetCount(), m_nCountToDisk,
                m_nCountInMemory, m_failing ? ", writing fails" : "");
    std::string description(text.View());
    const std::size_t count = std::min(static_cast<std::size_t>(std::max(items, 0)), m_pending.GetCount());
    std::size_t older = m_pending.GetCount() - count;
    m_pending.Visit([&](const LogRecord& record, LogFormats& formats) {
        if (older > 0) {
            --older;
        } else {
            formats.lineLayout.Append(description, record);
            description += '\n';
        }
        return true;
    });
    return description;
}

} // namespace Qzc
