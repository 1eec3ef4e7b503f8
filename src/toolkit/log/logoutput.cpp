#include "toolkit/log/logoutput.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "toolkit/qztoolkit.h"

namespace Qzc {

namespace {

constexpr std::string_view EndTag = "</Log>\r\n";
constexpr std::string_view ItemEnd = "</LogItem>\r\n";

std::string XmlHead() {
    return std::string(QzToolkit::GetXmlFileHeader(QzToolkit::GetCurCharset()).View()) + "\r\n<Log>\r\n";
}

} // namespace

bool LogOutput::Open(const KeldMBString& path, Form form, Start start) {
    Close(false);
    m_path = path;
    return Reopen(form, start);
}

bool LogOutput::Reopen(Form form, Start start) {
    m_form = form;
    const bool opened = form == Form::Xml ? OpenXml(start) : OpenText(start);
    if (!opened)
        m_file.Close();
    return opened;
}

bool LogOutput::Close(bool sync) {
    const bool kept = m_unasked.empty() || (m_file.IsOpen() && m_file.HasName()) || WriteAgain({});
    m_unasked.clear();
    m_path.Empty();
    if (!m_file.IsOpen())
        return kept;
    const bool synced = !sync || m_file.Sync();
    return m_file.Close() && synced && kept;
}

bool LogOutput::OpenText(Start start) {
    const bool afresh = start == Start::Afresh;
    if (!m_file.Open(m_path, afresh ? QzFile::Access::Write : QzFile::Access::ReadWrite))
        return false;
    m_cursor = 0;
    m_position = m_end = m_file.GetLength();
    char last = '\n';
    if (m_position > 0 && m_file.Seek(m_position - 1)) {
        m_file.Read(&last, 1);
        m_cursor = m_position;
    }
    if (last == '\n')
        return true;
    // A line that was cut off, by a power failure, say, must not swallow the next one.
    if (!WriteAt(m_position, "\n"))
        return false;
    m_position = m_end = m_position + 1;
    return true;
}

bool LogOutput::OpenXml(Start start) {
    const std::string head = XmlHead();
    const std::string empty = head + std::string(EndTag);
    const bool exists = QzFile::IsExist(m_path) && m_file.Open(m_path, QzFile::Access::ReadWrite);
    std::int64_t length = exists ? m_file.GetLength() : 0;
    if (start == Start::Afresh || length <= 0) {
        // In one step, for even a file that was just made is to be a document.
        KeldMBString error;
        if (!QzFile::ReplaceAll(m_path, KeldMBString(empty), error) || !m_file.Open(m_path, QzFile::Access::ReadWrite))
            return false;
        m_cursor = 0;
        m_position = m_end = static_cast<std::int64_t>(head.size());
        return true;
    }
    m_cursor = -1;
    std::string bytes(head.size(), '\0');
    if (!m_file.Seek(0) ||
        m_file.Read(bytes.data(), static_cast<std::int64_t>(bytes.size())) != static_cast<std::int64_t>(bytes.size()) ||
        bytes != head)
        return false;
    m_position = m_end = FindEndOfItems(static_cast<std::int64_t>(head.size()));
    // A write that was cut off has left part of an item, and no end tag.
    std::string tail(EndTag.size() + 1, '\0');
    const bool whole =
        m_file.Seek(m_position) &&
        m_file.Read(tail.data(), static_cast<std::int64_t>(tail.size())) == static_cast<std::int64_t>(EndTag.size()) &&
        tail.compare(0, EndTag.size(), EndTag) == 0;
    return whole || (m_file.Truncate(m_position) && WriteAt(m_position, std::string(EndTag)));
}

// Markup in values is escaped, so these bytes are nothing but the end of an item.
std::int64_t LogOutput::FindEndOfItems(std::int64_t start) {
    constexpr std::int64_t BlockSize = 1 << 16;
    const auto overlap = static_cast<std::int64_t>(ItemEnd.size()) - 1;
    const std::int64_t length = m_file.GetLength();
    for (std::int64_t end = length; end > start; end -= BlockSize) {
        const std::int64_t from = std::max(start, end - BlockSize);
        std::string block(static_cast<std::size_t>(std::min(end + overlap, length) - from), '\0');
        if (!m_file.Seek(from))
            break;
        block.resize(static_cast<std::size_t>(m_file.Read(block.data(), static_cast<std::int64_t>(block.size()))));
        const std::size_t found = block.rfind(ItemEnd);
        if (found != std::string::npos)
            return from + static_cast<std::int64_t>(found + ItemEnd.size());
    }
    return start;
}

bool LogOutput::WriteHere(const std::string& bytes) {
    const auto size = static_cast<std::int64_t>(bytes.size());
    const std::int64_t written = m_file.Write(bytes.data(), size);
    m_cursor += written;
    return written == size;
}

bool LogOutput::WriteAt(std::int64_t position, const std::string& bytes) {
    if (m_cursor != position && !m_file.Seek(position))
        return false;
    m_cursor = position;
    return WriteHere(bytes);
}

bool LogOutput::Write(std::string& items) {
    const std::size_t length = items.size();
    if (m_form == Form::Xml)
        items.append(EndTag);
    const std::string_view itemsAlone = std::string_view(items).substr(0, length);
    if (m_file.IsOpen()) {
        if (!TryToWrite(items, static_cast<std::int64_t>(length)))
            return false;
        if (!IsNameToBeAsked()) {
            m_unasked.append(itemsAlone);
            return true;
        }
        // A removed file takes the write as any other does; asked behind it, the question misses no removal.
        m_writesUnasked = 0;
        if (m_file.HasName()) {
            m_unasked.clear();
            return true;
        }
    }
    return WriteAgain(itemsAlone);
}

// A pause ends a burst: to remove a file takes longer than a write.
bool LogOutput::IsNameToBeAsked() {
    constexpr int LongestBurst = 16;
    constexpr std::size_t MostBytes = 1 << 16;
    constexpr std::chrono::microseconds Pause(5);
    const auto before = std::exchange(m_lastWrite, std::chrono::steady_clock::now());
    return ++m_writesUnasked >= LongestBurst || m_unasked.size() > MostBytes || m_lastWrite - before > Pause;
}

bool LogOutput::WriteAgain(std::string_view items) {
    std::string all = m_unasked;
    all.append(items);
    const auto length = static_cast<std::int64_t>(all.size());
    if (m_form == Form::Xml)
        all.append(EndTag);
    if (!Reopen(m_form, Start::Append) || !TryToWrite(all, length)) {
        m_file.Close();
        return false;
    }
    m_unasked.clear();
    return true;
}

bool LogOutput::TryToWrite(const std::string& items, std::int64_t itemsLength) {
    if (WriteAt(m_position, items)) {
        m_position += itemsLength;
        m_end = std::max(m_end, m_position);
        return true;
    }
    // Back to whole items; cutting them off makes room for the end tag on a full disk.
    if (m_cursor > m_end) {
        m_file.Truncate(m_end);
        if (m_form == Form::Xml)
            WriteAt(m_end, std::string(EndTag));
    }
    return false;
}

} // namespace Qzc
