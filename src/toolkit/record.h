#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "stream/qzstream.h"

namespace Qzc {

// The fixed parts of a record, in the byte order of QzStream, assembled here so that the stream is asked once
// for all of them. Integers only.

template <std::size_t Capacity>
class RecordWriter {
public:
    template <class T>
    RecordWriter& operator<<(T value) {
        static_assert(std::is_integral_v<T>);
        auto bits = static_cast<std::uint32_t>(value);
        for (std::size_t i = 0; i < sizeof(T); ++i, bits >>= 8)
            m_bytes[m_size++] = static_cast<unsigned char>(bits);
        return *this;
    }
    /// Hands over what there is and starts anew.
    void WriteTo(QzStream& stream) {
        stream.Write(m_bytes, static_cast<std::int64_t>(m_size));
        m_size = 0;
    }

private:
    unsigned char m_bytes[Capacity];
    std::size_t m_size = 0;
};

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
        static_assert(std::is_integral_v<T>);
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < sizeof(T); ++i)
            bits |= static_cast<std::uint32_t>(m_bytes[m_next++]) << 8 * i;
        return static_cast<T>(bits);
    }

private:
    unsigned char m_bytes[Size];
    std::size_t m_next = 0;
};

} // namespace Qzc
