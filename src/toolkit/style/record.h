#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "stream/qzstream.h"

namespace Qzc {

/// The bytes of a value as they lie in a record, whatever the machine.
template <class T>
void PutBytes(unsigned char* bytes, T value) {
    static_assert(std::is_arithmetic_v<T> || std::is_enum_v<T>);
    std::memcpy(bytes, &value, sizeof(T));
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    std::reverse(bytes, bytes + sizeof(T));
#endif
}

template <class T>
T TakeBytes(const unsigned char* bytes) {
    unsigned char own[sizeof(T)];
    std::memcpy(own, bytes, sizeof(T));
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    std::reverse(own, own + sizeof(T));
#endif
    T value;
    std::memcpy(&value, own, sizeof(T));
    return value;
}

/// What a size word can tell; 0 for more.
inline std::uint32_t SizeWord(std::uint64_t size) {
    return size <= std::numeric_limits<std::uint32_t>::max() ? static_cast<std::uint32_t>(size) : 0;
}

/// At most what an int can tell.
inline int IntSize(std::uint64_t size) {
    return static_cast<int>(std::min<std::uint64_t>(size, std::numeric_limits<std::int32_t>::max()));
}

/// Writes the fixed part of a record: assembled here, so that the stream is asked once for all of it.
template <class... Fields>
void WriteFields(QzStream& stream, Fields... fields) {
    unsigned char bytes[(sizeof(Fields) + ...)];
    unsigned char* next = bytes;
    const auto put = [&](auto field) {
        PutBytes(next, field);
        next += sizeof(field);
    };
    (put(fields), ...);
    stream.Write(bytes, sizeof(bytes));
}

/// The bytes of one record in a stream, which may hold more behind it.
class RecordSource {
public:
    RecordSource(QzStream& stream, std::int64_t end) : m_stream(stream), m_left(end - stream.GetPosition()) {}

    std::int64_t GetLeft() const { return m_left; }
    bool Read(void* bytes, std::int64_t count) { ///< false when not all of them are there
        if (count > m_left)
            return false;
        m_left -= count;
        return m_stream.Read(bytes, count) == count;
    }
    void GoBack(std::int64_t count) {
        m_left += count;
        m_stream.Seek(m_stream.GetPosition() - count);
    }

private:
    QzStream& m_stream;
    std::int64_t m_left;
};

/// The fixed part of a record, read at once and then taken apart.
template <std::size_t Size>
class RecordPart {
public:
    bool Read(RecordSource& source) { return source.Read(m_bytes, Size); }

    template <class T>
    RecordPart& operator>>(T& value) {
        value = Take<T>();
        return *this;
    }
    template <class T>
    T Take() {
        m_next += sizeof(T);
        return TakeBytes<T>(m_bytes + m_next - sizeof(T));
    }
    std::uint32_t Last() const { return TakeBytes<std::uint32_t>(m_bytes + Size - 4); } ///< the last four bytes

private:
    unsigned char m_bytes[Size];
    std::size_t m_next = 0;
};

} // namespace Qzc
