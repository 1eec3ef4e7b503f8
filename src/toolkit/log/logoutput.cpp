#include "toolkit/log/logoutput.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "base/keldtime.h"

namespace Qzc {

namespace {

constexpr std::string_view EndTag = "</Log>\r\n";
constexpr std::string_view ItemEnd = "</LogItem>\r\n";
constexpr std::int64_t AskEvery = 500; // milliseconds
constexpr std::size_t LargeWrite = 1 << 14;

std::string XmlHead(KELDCharset::Charset charset) {
    return std::string(QzToolkit::GetXmlFileHeader(charset).View()) + "\r\n<Log>\r\n";
}

// The process that logged first, and the children that it forked since: they share their files on purpose.
unsigned int Family() {
    static const unsigned int s_family = Platform::CurrentProcessId();
    return s_family;
}

// While one lives, no other log changes what stands in the file.
class ChangeLock {
public:
    explicit ChangeLock(Platform::SharedFile& file) : m_file(file) { m_file.LockChanges(); }
    ~ChangeLock() { m_file.UnlockChanges(); }
    ChangeLock(const ChangeLock&) = delete;
    ChangeLock& operator=(const ChangeLock&) = delete;

private:
    Platform::SharedFile& m_file;
};

} // namespace

// ---- Opening

bool LogOutput::Open(const KeldMBString& path, Form form, Start start, KELDCharset::Charset charset) {
    Close(false);
    m_path = path;
    m_form = form;
    m_charset = charset;
    return OpenFile(start);
}

bool LogOutput::Reopen() {
    m_file.Close();
    return OpenFile(Start::Append);
}

bool LogOutput::Close(bool sync) {
    m_path.Empty();
    if (!m_file.IsOpen())
        return true;
    const bool synced = !sync || m_file.Sync();
    return m_file.Close() && synced;
}

bool LogOutput::OpenFile(Start start) {
    using Creation = Platform::SharedFile::Creation;
    int error = 0;
    if (!m_file.Open(std::string(m_path.View()), start == Start::New ? Creation::New : Creation::Keep, error))
        return false;
    m_file.Mark(Family());
    m_position = -1;
    m_nameAsked = m_lengthAsked = KeldTime::GetMilliseconds();
    const ChangeLock lock(m_file);
    const bool opened = m_form == Form::Xml ? OpenXml(start) : OpenText(start);
    m_known = m_end;
    if (!opened)
        m_file.Close();
    return opened;
}

bool LogOutput::OpenText(Start start) {
    m_end = std::max<std::int64_t>(m_file.GetLength(), 0);
    if (start == Start::Afresh)
        return StartAfresh();
    if (EndsLine())
        return true;
    // What somebody else is writing right now may be seen in part; it is whole in a moment.
    for (int i = 0; i < 100 && m_file.IsMarkedElsewhere(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        m_end = std::max<std::int64_t>(m_file.GetLength(), 0);
        if (EndsLine())
            return true;
    }
    // A line that was cut off, by a power failure, say, must not swallow the next one.
    ++m_end;
    return m_file.Append("\n", 1) == 1;
}

bool LogOutput::EndsLine() const {
    char last = '\n';
    if (m_end > 0)
        m_file.ReadAt(m_end - 1, &last, 1);
    return last == '\n';
}

bool LogOutput::OpenXml(Start start) {
    m_end = m_file.GetLength();
    if (start == Start::Afresh || m_end == 0)
        return StartAfresh();
    return IsXmlLog() && EndXmlItems();
}

bool LogOutput::StartAfresh() {
    if (m_end > 0 && !m_file.Truncate(0))
        return false;
    m_end = m_known = 0;
    m_position = -1;
    if (m_form == Form::Text)
        return true;
    const std::string empty = XmlHead(m_charset).append(EndTag);
    if (!WriteAt(0, empty)) {
        m_file.Truncate(0);
        return false;
    }
    m_end = static_cast<std::int64_t>(empty.size());
    return true;
}

bool LogOutput::IsXmlLog() const {
    const std::string head = XmlHead(m_charset);
    std::string bytes(head.size(), '\0');
    const auto size = static_cast<std::int64_t>(head.size());
    return m_file.ReadAt(0, bytes.data(), size) == size && bytes == head;
}

// A write that was cut off has left part of an item, and no end tag.
bool LogOutput::EndXmlItems() {
    constexpr auto TagSize = static_cast<std::int64_t>(EndTag.size());
    char tail[EndTag.size()];
    if (m_file.ReadAt(m_end - TagSize, tail, TagSize) == TagSize && std::string_view(tail, EndTag.size()) == EndTag)
        return true;
    const std::int64_t end = FindEndOfItems();
    if (!m_file.Truncate(end) || !WriteAt(end, EndTag))
        return false;
    m_end = end + TagSize;
    return true;
}

// Markup in values is escaped, so these bytes are nothing but the end of an item.
std::int64_t LogOutput::FindEndOfItems() const {
    constexpr std::int64_t BlockSize = 1 << 16;
    constexpr auto Overlap = static_cast<std::int64_t>(ItemEnd.size()) - 1;
    const auto start = static_cast<std::int64_t>(XmlHead(m_charset).size());
    for (std::int64_t end = m_end; end > start; end -= BlockSize) {
        const std::int64_t from = std::max(start, end - BlockSize);
        std::string block(static_cast<std::size_t>(std::min(end + Overlap, m_end) - from), '\0');
        const std::int64_t size = m_file.ReadAt(from, block.data(), static_cast<std::int64_t>(block.size()));
        block.resize(static_cast<std::size_t>(size));
        const std::size_t found = block.rfind(ItemEnd);
        if (found != std::string::npos)
            return from + static_cast<std::int64_t>(found + ItemEnd.size());
    }
    return start;
}

// ---- Writing

bool LogOutput::Write(std::string& items, std::int64_t now) {
    const std::size_t length = items.size();
    if (m_form == Form::Xml)
        items.append(EndTag);
    if (m_file.IsOpen() && (length > LargeWrite || now - m_nameAsked >= AskEvery)) {
        m_nameAsked = now;
        if (m_file.HasLeft(m_path.Cstr()))
            m_file.Close();
    }
    if (!m_file.IsOpen() && !Reopen())
        return false;
    if (!TryToWrite(items, length))
        return false;
    // A removed file takes the write as any other does; asked behind it, the question misses no removal.
    return !m_file.IsRemoved() || (Reopen() && TryToWrite(items, length));
}

bool LogOutput::TryToWrite(const std::string& items, std::size_t itemsLength) {
    if (m_form == Form::Xml)
        return TryToWriteXml(items, itemsLength);
    return m_position < 0 ? TryToAppend(items) : TryToOverwrite(items);
}

bool LogOutput::TryToAppend(const std::string& items) {
    const auto size = static_cast<std::int64_t>(items.size());
    const std::int64_t written = m_file.Append(items.data(), size);
    m_end += written;
    if (written == size)
        return true;
    if (written > 0) {
        const std::int64_t end = m_file.GetPosition();
        TakeBack(end - written, end);
    }
    return false;
}

// To cut the file off takes away what others may have added meanwhile; where there are others, the part of a line
// becomes an empty one.
void LogOutput::TakeBack(std::int64_t start, std::int64_t end) {
    bool isCut = false;
    if (m_file.HoldAlone(Family())) {
        isCut = m_file.GetLength() == end && m_file.Truncate(start);
        m_file.ReleaseAlone(Family());
    }
    if (isCut)
        m_end = start;
    else
        WriteAt(start, std::string(static_cast<std::size_t>(end - start - 1), ' ') + '\n');
}

bool LogOutput::TryToOverwrite(const std::string& items) {
    if (m_position > 0 && m_file.GetLength() < m_position) {
        m_position = -1; // somebody has cut the file off
        return TryToAppend(items);
    }
    const auto size = static_cast<std::int64_t>(items.size());
    const std::int64_t written = m_file.WriteAt(m_position, items.data(), size);
    if (written != size) {
        if (m_position + written > m_end)
            m_file.Truncate(m_end);
        return false;
    }
    m_position += size;
    if (m_position >= m_end) {
        m_end = m_position;
        m_position = -1;
    }
    return true;
}

bool LogOutput::TryToWriteXml(const std::string& items, std::size_t itemsLength) {
    constexpr auto TagSize = static_cast<std::int64_t>(EndTag.size());
    const ChangeLock lock(m_file);
    const std::int64_t length = m_file.GetLength();
    if (length != m_end) {
        // Others have written, or cut the file off.
        m_end = length;
        if (length <= 0 ? !StartAfresh() : !(IsXmlLog() && EndXmlItems()))
            return false;
    }
    const std::int64_t position = m_end - TagSize;
    if (WriteAt(position, items)) {
        m_end += static_cast<std::int64_t>(itemsLength);
        return true;
    }
    // Cutting off makes room for the end tag on a full disk.
    m_file.Truncate(position);
    WriteAt(position, EndTag);
    return false;
}

bool LogOutput::WriteAt(std::int64_t position, std::string_view bytes) {
    const auto size = static_cast<std::int64_t>(bytes.size());
    return m_file.WriteAt(position, bytes.data(), size) == size;
}

// ---- Length and place

void LogOutput::Rewind() {
    if (m_form == Form::Text && m_end > 0)
        m_position = 0;
}

bool LogOutput::IsLongerThan(std::int64_t limit, std::int64_t now) {
    constexpr std::int64_t OthersWrite = 16; // times what we do
    if (!m_file.IsOpen())
        return false;
    const bool mayHavePassed = m_known <= limit && (m_end - m_known) * OthersWrite > limit - m_known;
    if (mayHavePassed || now - m_lengthAsked >= AskEvery) {
        m_lengthAsked = now;
        m_known = m_file.GetLength();
        if (m_form == Form::Text) // that of an XML file is told under its lock
            m_end = m_known;
    }
    return m_known > limit;
}

std::int64_t LogOutput::GetPosition() const {
    return m_position >= 0 ? m_position : GetLength();
}

bool LogOutput::IsOpenElsewhere(const KeldMBString& path, bool inFamily) {
    Platform::SharedFile file;
    int error = 0;
    if (!file.Open(path.Cstr(), Platform::SharedFile::Creation::Never, error))
        return false;
    return inFamily ? file.IsMarkedElsewhere(Family()) : file.IsMarkedElsewhere();
}

} // namespace Qzc
