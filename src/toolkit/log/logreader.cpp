#include "toolkit/log/logreader.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "base/keldmbstring.h"

namespace Qzc {

namespace {

constexpr std::int64_t BlockSize = 1 << 17;
constexpr std::int64_t NoEnd = -1;

} // namespace

bool LogFileReader::Read(std::int64_t from, std::int64_t to, LogItemVisitor& visitor, const Progress& progress) {
    m_visitor = &visitor;
    m_start = to;
    m_length = 0;
    m_itemEnd = NoEnd;
    while (m_start > from) {
        const std::int64_t before = m_start;
        if (!ReadBlock(std::max(from, before - BlockSize)))
            break;
        FindLines(static_cast<std::size_t>(before - m_start));
        while (!m_lines.empty()) {
            const std::int64_t line = m_start + static_cast<std::int64_t>(m_lines.back());
            m_lines.pop_back();
            if (m_itemEnd == NoEnd)
                m_itemEnd = line;
            else if (!TakeIfItem(line))
                return false;
        }
        // What stands at `from` may be the rest of a line that was written over.
        const bool startsHere = m_start == from && (from == 0 || m_reader.KnowsStart()) && m_itemEnd > from;
        const bool goesOn = !startsHere || TakeIfItem(from);
        if (!progress(before - m_start) || !goesOn)
            return false;
    }
    return true;
}

// The block from `from` to where the last one started, and behind it as much of the item that is looked for.
bool LogFileReader::ReadBlock(std::int64_t from) {
    const std::int64_t wanted = m_start - from;
    const std::int64_t kept =
        std::min({std::max<std::int64_t>(m_itemEnd - m_start, 0), BlockSize, static_cast<std::int64_t>(m_length)});
    m_bytes.resize(static_cast<std::size_t>(2 * BlockSize));
    std::memmove(m_bytes.data() + wanted, m_bytes.data(), static_cast<std::size_t>(kept));
    m_length = static_cast<std::size_t>(wanted + kept);
    m_start = from;
    return ReadAt(from, m_bytes.data(), wanted);
}

// When the file has become shorter the items are gone, which is no failure.
bool LogFileReader::ReadAt(std::int64_t position, char* bytes, std::int64_t count) {
    if (m_file.Seek(position) && m_file.Read(bytes, count) == count)
        return true;
    m_complete = m_complete && m_file.GetErrorCode() == 0;
    return false;
}

void LogFileReader::FindLines(std::size_t length) {
    m_lines.clear();
    const char* const bytes = m_bytes.data();
    for (std::size_t at = 0; at < length;) {
        const void* const found = std::memchr(bytes + at, '\n', length - at);
        if (found == nullptr)
            break;
        at = static_cast<std::size_t>(static_cast<const char*>(found) - bytes) + 1;
        m_lines.push_back(at);
    }
}

// False: enough.
bool LogFileReader::TakeIfItem(std::int64_t start) {
    const std::size_t offset = static_cast<std::size_t>(start - m_start);
    const auto length = static_cast<std::size_t>(m_itemEnd - start);
    const std::string_view there = std::string_view(m_bytes).substr(offset, std::min(length, m_length - offset));
    if (!m_reader.StartsItem(there))
        return true;
    const bool goesOn = there.size() == length ? Show(there.substr(0, length - 1)) : TakeLong(start);
    m_itemEnd = start;
    return goesOn;
}

// An item of which only the start is in memory.
bool LogFileReader::TakeLong(std::int64_t start) try {
    const std::int64_t length = m_itemEnd - 1 - start;
    if (length > KeldMBString::MaxLength) {
        m_complete = false;
        return true;
    }
    std::string text(static_cast<std::size_t>(length), '\0');
    return !ReadAt(start, text.data(), length) || Show(text);
} catch (const std::bad_alloc&) {
    m_complete = false;
    return true;
}

bool LogFileReader::Show(std::string_view text) {
    LogReading reading;
    return !m_visitor->Wants(m_reader, text) || !m_reader.Read(text, reading) || m_visitor->Take(reading);
}

} // namespace Qzc
