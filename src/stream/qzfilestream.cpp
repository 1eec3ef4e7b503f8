#include "stream/qzfilestream.h"

#include <algorithm>
#include <new>

namespace Qzc {

// The window holds either bytes read ahead (m_writeEnd == m_window, so writing asks WriteMore) or bytes still
// to be written ([m_window, m_cursor), with m_writeEnd at the buffer's end).

QzFileStream::QzFileStream(const KeldMBString& path, Direction direction, int bufferSize) {
    Open(path, direction, bufferSize);
}

QzFileStream::~QzFileStream() {
    Close();
}

bool QzFileStream::Open(const KeldMBString& path, Direction direction, int bufferSize) {
    Close();
    ClearFailure();
    m_direction = direction;
    // The buffer first: without one no file is created or emptied.
    m_bufferSize = std::max(bufferSize, 1);
    m_buffer.reset(new (std::nothrow) unsigned char[static_cast<std::size_t>(m_bufferSize)]);
    if (m_buffer == nullptr)
        ReportMemoryFailure();
    if (m_buffer == nullptr || !m_file.Open(path, direction)) {
        m_buffer.reset();
        return false;
    }
    ResetWindow(0);
    return true;
}

bool QzFileStream::Close() {
    const bool flushed = Flush();
    const bool closed = m_file.Close();
    m_buffer.reset();
    m_window = m_cursor = m_readEnd = m_writeEnd = nullptr;
    m_windowPosition = 0;
    return flushed && closed;
}

bool QzFileStream::Flush() {
    const std::int64_t position = GetPosition();
    const std::int64_t pending = m_writeEnd != m_window ? m_cursor - m_window : 0;
    if (pending == 0)
        return true;
    const bool written = m_file.Write(m_window, pending) == pending;
    if (!written)
        SetFailed();
    ResetWindow(position);
    return written;
}

void QzFileStream::ResetWindow(std::int64_t position) {
    m_window = m_cursor = m_readEnd = m_writeEnd = m_buffer.get();
    m_windowPosition = position;
}

bool QzFileStream::Seek(std::int64_t position) {
    if (position < 0 || position > GetLength() || !Flush() || !m_file.Seek(position))
        return false;
    ResetWindow(position);
    return true;
}

std::int64_t QzFileStream::GetLength() const {
    return IsOpen() ? std::max(m_file.GetLength(), GetPosition()) : 0;
}

std::int64_t QzFileStream::ReadMore(unsigned char* buffer, std::int64_t count) {
    if (!IsOpen() || m_direction == Direction::Write || !Flush())
        return 0;
    std::int64_t done = m_readEnd - m_cursor;
    std::copy_n(m_cursor, done, buffer);
    ResetWindow(GetPosition() + done);
    if (count - done >= m_bufferSize) {
        const std::int64_t direct = m_file.Read(buffer + done, count - done);
        ResetWindow(GetPosition() + direct);
        return done + direct;
    }
    m_readEnd = m_window + m_file.Read(m_window, m_bufferSize);
    const std::int64_t rest = std::min<std::int64_t>(count - done, m_readEnd - m_cursor);
    std::copy_n(m_cursor, rest, buffer + done);
    m_cursor += rest;
    return done + rest;
}

std::int64_t QzFileStream::WriteMore(const unsigned char* buffer, std::int64_t count) {
    if (!IsOpen() || m_direction == Direction::Read)
        return 0;
    const std::int64_t position = GetPosition();
    const bool readAhead = m_writeEnd == m_window && m_readEnd != m_cursor;
    if (!Flush() || (readAhead && !m_file.Seek(position)))
        return 0;
    ResetWindow(position);
    if (count >= m_bufferSize) {
        const std::int64_t direct = m_file.Write(buffer, count);
        ResetWindow(position + direct);
        return direct;
    }
    m_writeEnd = m_window + m_bufferSize;
    std::copy_n(buffer, count, m_cursor);
    m_cursor += count;
    m_readEnd = m_cursor;
    return count;
}

} // namespace Qzc
