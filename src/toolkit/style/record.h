#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <type_traits>

#include "stream/qzstream.h"

namespace Qzc {

/// A value as its bytes lie in a record, and back.
template <class T>
T LittleEndian(T value) {
    static_assert(std::is_integral_v<T>);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    unsigned char bytes[sizeof(T)];
    std::memcpy(bytes, &value, sizeof(T));
    std::reverse(bytes, bytes + sizeof(T));
    std::memcpy(&value, bytes, sizeof(T));
#endif
    return value;
}

// The fixed parts of a record, in the byte order of QzStream, assembled here so that the stream is asked once
// for all of them. Integers only.

template <class... Fields>
void WriteFields(QzStream& stream, Fields... fields) {
    unsigned char bytes[(sizeof(Fields) + ...)];
    unsigned char* next = bytes;
    const auto put = [&](auto field) {
        field = LittleEndian(field);
        std::memcpy(next, &field, sizeof(field));
        next += sizeof(field);
    };
    (put(fields), ...);
    stream.Write(bytes, sizeof(bytes));
}

/// Reads `Size` bytes at once; those that are not there are 0, as everywhere in a stream.
template <std::size_t Size>
class RecordReader {
public:
    explicit RecordReader(QzStream& stream) { stream.Read(m_bytes, Size); }

    template <class T>
    RecordReader& operator>>(T& value) {
        value = Take<T>();
        return *this;
    }
    template <class T>
    T Take() {
        T value;
        std::memcpy(&value, m_bytes + m_next, sizeof(T));
        m_next += sizeof(T);
        return LittleEndian(value);
    }

private:
    unsigned char m_bytes[Size];
    std::size_t m_next = 0;
};

} // namespace Qzc
