#include "stream/qzmemorystream.h"

#include <algorithm>
#include <limits>
#include <new>

namespace Qzc {

QzMemoryStream::QzMemoryStream(const void* data, std::int64_t length) : m_isView(true) {
    // The base keeps one kind of pointer for both uses; with no room to write it never writes through it.
    m_window = const_cast<unsigned char*>(static_cast<const unsigned char*>(data));
    m_cursor = m_window;
    m_readEnd = m_window + (data != nullptr ? std::max<std::int64_t>(length, 0) : 0);
    m_writeEnd = m_window;
}

QzMemoryStream::~QzMemoryStream() = default;

bool QzMemoryStream::Seek(std::int64_t position) {
    if (position < 0 || position > GetLength())
        return false;
    m_cursor = m_window + position;
    return true;
}

void QzMemoryStream::Reserve(std::int64_t capacity) {
    Grow(capacity);
}

std::unique_ptr<unsigned char[]> QzMemoryStream::Grow(std::int64_t capacity) {
    if (m_isView || capacity <= m_writeEnd - m_window)
        return nullptr;
    std::unique_ptr<unsigned char[]> storage(new (std::nothrow) unsigned char[static_cast<std::size_t>(capacity)]);
    if (storage == nullptr)
        return nullptr;
    const std::int64_t position = GetPosition();
    const std::int64_t length = GetLength();
    std::copy_n(m_window, length, storage.get());
    m_storage.swap(storage);
    m_window = m_storage.get();
    m_cursor = m_window + position;
    m_readEnd = m_window + length;
    m_writeEnd = m_window + capacity;
    return storage;
}

std::int64_t QzMemoryStream::ReadMore(unsigned char* buffer, std::int64_t count) {
    return Read(buffer, std::min(count, GetRemaining()));
}

std::int64_t QzMemoryStream::WriteMore(const unsigned char* buffer, std::int64_t count) {
    if (m_isView)
        return 0;
    const std::int64_t capacity = m_writeEnd - m_window;
    const std::int64_t position = GetPosition();
    if (count > std::numeric_limits<std::int64_t>::max() - position)
        return 0;
    // The bytes may be the stream's own, so the old ones go only when the new ones are written.
    const auto old = Grow(std::max({position + count, capacity + capacity / 2, std::int64_t{256}}));
    return count <= m_writeEnd - m_cursor ? Write(buffer, count) : 0;
}

} // namespace Qzc
