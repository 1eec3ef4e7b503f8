#include "toolkit/log/logstate.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "toolkit/log/logcallbacks.h"
#include "toolkit/log/logguard.h"
#include "toolkit/log/lognames.h"
#include "toolkit/qzregistry.h"

namespace Qzc {

void QzLogFile::State::SetDefaultSetting() {
    SetFormats("%DATETIME| %TIMESPAN| %RESID| %THREADID| %LEVEL| %MSG| %CODEFILE(%CODELINE)", "%Y-%m-%d %H:%M:%S");
    const KeldMBString infoID = QzRegistry::Root().Obj("LogSetting")["InfoID"];
    if (!infoID.IsEmpty())
        m_arrInfoID.push_back(static_cast<int>(std::strtol(infoID.Cstr(), nullptr, 10)));
}

void QzLogFile::State::SetFormats(const KeldMBString& line, const KeldMBString& dateTime) {
    m_formats = std::make_shared<LogFormats>(line, dateTime);
}

bool QzLogFile::State::Takes(LogLevelType level, int code) const {
    if (m_bBlocked.load(std::memory_order_relaxed) != 0)
        return false;
    return level >= m_nLevel.load(std::memory_order_relaxed) || level >= error ||
           std::find(m_arrInfoID.begin(), m_arrInfoID.end(), code) != m_arrInfoID.end();
}

void QzLogFile::State::DropOldest() {
    while (m_pending.size() > m_nCountInMemory)
        m_pending.pop_front();
}

// Takes m_item into the batch, and writes the batch when it is full.
bool QzLogFile::State::Append(Delivery& delivery) {
    if (m_nCountToDisk == 1 && m_pending.empty() && WritesFile()) {
        // A batch of this one item, which need not be copied to wait for others.
        m_rollover.DealTimeInterval(m_output);
        m_rollover.DealFileSizeLimit(m_output);
        m_buffer.clear();
        m_formats->AppendWhole(m_buffer, m_item, m_output.GetForm());
        m_failing = !m_output.Write(m_buffer);
        ReleaseBuffers();
        if (!m_failing)
            return true;
        m_pending.push_back({m_item, m_formats});
        return false;
    }
    m_pending.push_back({m_item, m_formats});
    return m_pending.size() < std::min(m_nCountToDisk, m_nCountInMemory) || Write(delivery);
}

// What a very long message has left behind.
void QzLogFile::State::ReleaseBuffers() {
    if (m_buffer.capacity() > 4 * WriteSize)
        m_buffer = std::string();
    if (m_item.m_strDescription.GetLength() > static_cast<int>(WriteSize))
        m_item.m_strDescription = KeldMBString();
}

// Writes to the file, or takes what the caller is to hand to the call-backs. True also when the items are to
// stay in memory.
bool QzLogFile::State::Write(Delivery& delivery) {
    bool written = true;
    if (HasFile()) {
        if (WritesFile())
            written = WriteFile();
    } else if (!LogCallBackScope::IsInside() &&
               (LogCallBacks::ms_write.load() != nullptr || LogCallBacks::ms_writeAll.load() != nullptr)) {
        delivery.items.assign(std::make_move_iterator(m_pending.begin()), std::make_move_iterator(m_pending.end()));
        m_pending.clear();
        delivery.dataSource = m_pDataSource;
    }
    DropOldest();
    return written;
}

bool QzLogFile::State::WriteFile() {
    if (m_pending.empty())
        return true;
    m_rollover.DealTimeInterval(m_output);
    m_rollover.DealFileSizeLimit(m_output);
    while (!m_pending.empty()) {
        // While writing fails each attempt costs one item's formatting, however many wait.
        const std::size_t size = m_failing ? 1 : WriteSize;
        m_buffer.clear();
        std::size_t count = 0;
        while (count < m_pending.size() && m_buffer.size() < size) {
            Pending& pending = m_pending[count++];
            pending.formats->AppendWhole(m_buffer, pending.item, m_output.GetForm());
        }
        m_failing = !m_output.Write(m_buffer);
        if (m_failing)
            return false;
        m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(count));
    }
    ReleaseBuffers();
    return true;
}

// Outside the mutex. What the call-backs do not take goes back into memory.
bool QzLogFile::State::Deliver(Delivery& delivery) {
    if (delivery.items.empty())
        return true;
    const auto takeAll = LogCallBacks::ms_writeAll.load();
    const auto takeOne = LogCallBacks::ms_write.load();
    auto left = delivery.items.begin();
    {
        const LogCallBackScope scope;
        if (takeAll != nullptr) {
            KeldArray<QzLogItem> items;
            for (const Pending& pending : delivery.items)
                items.Add(pending.item);
            if (takeAll(delivery.dataSource, items) != 0)
                left = delivery.items.end();
        } else if (takeOne != nullptr) {
            while (left != delivery.items.end() && takeOne(delivery.dataSource, left->item) != 0)
                ++left;
        }
    }
    if (left == delivery.items.end())
        return true;
    const LogGuard guard(m_mutex);
    m_pending.insert(m_pending.begin(), std::make_move_iterator(left), std::make_move_iterator(delivery.items.end()));
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
                m_formats->lineFormat.Cstr(), m_formats->dateTimeFormat.Cstr(), m_pending.size(), m_nCountToDisk,
                m_nCountInMemory, m_failing ? ", writing fails" : "");
    std::string description(text.View());
    const std::size_t count = std::min(static_cast<std::size_t>(std::max(items, 0)), m_pending.size());
    for (std::size_t i = m_pending.size() - count; i < m_pending.size(); ++i) {
        m_pending[i].formats->lineLayout.Append(description, m_pending[i].item);
        description += '\n';
    }
    return description;
}

} // namespace Qzc
