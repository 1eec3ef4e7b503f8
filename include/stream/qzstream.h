#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "stream/mostreamexport.h"

namespace Qzc {

/// A binary stream. Every value is little-endian whatever the machine; positions and lengths are 64-bit byte
/// counts.
///
/// A read that finds fewer bytes than it needs fills the rest with zeros, and the failure is remembered
/// (`IsGood`), so a reader can take a whole record and ask once at its end. One thread at a time.
class MOSTREAM_API QzStream {
public:
    virtual ~QzStream();
    QzStream(const QzStream&) = delete;
    QzStream& operator=(const QzStream&) = delete;

    /// Reads `count` bytes; the number read. The bytes that were not there are zero.
    std::int64_t Read(void* buffer, std::int64_t count) {
        if (count > m_readEnd - m_cursor)
            return ReadRest(static_cast<unsigned char*>(buffer), count);
        if (count <= 0)
            return 0;
        std::memmove(buffer, m_cursor, static_cast<std::size_t>(count));
        m_cursor += count;
        return count;
    }

    /// Writes `count` bytes; the number written, less than `count` only on failure. They may be the stream's own.
    std::int64_t Write(const void* buffer, std::int64_t count) {
        if (count > m_writeEnd - m_cursor)
            return WriteRest(static_cast<const unsigned char*>(buffer), count);
        if (count <= 0)
            return 0;
        std::memmove(m_cursor, buffer, static_cast<std::size_t>(count));
        m_cursor += count;
        if (m_cursor > m_readEnd)
            m_readEnd = m_cursor;
        return count;
    }

    /// Moves to a byte offset from the start. False, and no move, when it lies outside the stream.
    virtual bool Seek(std::int64_t position) = 0;
    std::int64_t GetPosition() const { return m_windowPosition + (m_cursor - m_window); } ///< from the start
    virtual std::int64_t GetLength() const = 0;                               ///< of all that is in the stream
    std::int64_t GetRemaining() const { return GetLength() - GetPosition(); } ///< behind the position

    bool IsGood() const { return m_good; } ///< no read or write has failed since the start or ClearFailure
    void SetFailed() { m_good = false; }   ///< for a reader that finds a record wrong
    void ClearFailure() { m_good = true; } ///< what failed before does not count any more

    /// Reads a signed 32-bit count of elements of `elementSize` bytes each (at least 1), that follow it. A count that
    /// is negative or larger than what the stream still holds is a failed read: 0, and nothing behind the count is
    /// consumed.
    int ReadCount(int elementSize);

    /// Integers of 1, 2, 4 and 8 bytes, float and double. Use the fixed-width types: `long` differs between
    /// systems.
    template <class T, class = std::enable_if_t<std::is_arithmetic_v<T>>>
    QzStream& operator<<(T value) {
        unsigned char bytes[sizeof(T)];
        auto bits = ToBits(value);
        for (unsigned char& byte : bytes) {
            byte = static_cast<unsigned char>(bits);
            bits = static_cast<decltype(bits)>(static_cast<std::uint64_t>(bits) >> 8);
        }
        Write(bytes, sizeof(T));
        return *this;
    }
    template <class T, class = std::enable_if_t<std::is_arithmetic_v<T>>>
    QzStream& operator>>(T& value) {
        unsigned char bytes[sizeof(T)];
        Read(bytes, sizeof(T));
        std::uint64_t bits = 0;
        for (std::size_t i = sizeof(T); i-- > 0;)
            bits = bits << 8 | bytes[i];
        FromBits(bits, value);
        return *this;
    }

    /// A signed 32-bit byte count, then the bytes. A failed read gives an empty text, and a text for which there is no
    /// memory is one; the charset number is not stored.
    QzStream& operator<<(const KeldMBString& text);
    QzStream& operator>>(KeldMBString& text);

protected:
    QzStream() = default;

    /// What the window below cannot serve: moves the window and transfers what it can; the number of bytes.
    virtual std::int64_t ReadMore(unsigned char* buffer, std::int64_t count) = 0;
    /// Likewise.
    virtual std::int64_t WriteMore(const unsigned char* buffer, std::int64_t count) = 0;

    // The part of the stream that is in memory, so that small transfers are a copy without a virtual call.

    unsigned char* m_window = nullptr;   ///< the byte at m_windowPosition
    unsigned char* m_cursor = nullptr;   ///< the next byte
    unsigned char* m_readEnd = nullptr;  ///< up to here can be read
    unsigned char* m_writeEnd = nullptr; ///< up to here can be written
    std::int64_t m_windowPosition = 0;   ///< the window's place in the stream

private:
    std::int64_t ReadRest(unsigned char* buffer, std::int64_t count);
    std::int64_t WriteRest(const unsigned char* buffer, std::int64_t count);

    template <class T>
    static auto ToBits(T value) {
        if constexpr (std::is_floating_point_v<T>) {
            std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t> bits;
            static_assert(sizeof(bits) == sizeof(value));
            std::memcpy(&bits, &value, sizeof(bits));
            return bits;
        } else {
            return static_cast<std::uint64_t>(value);
        }
    }
    template <class T>
    static void FromBits(std::uint64_t bits, T& value) {
        if constexpr (std::is_floating_point_v<T>) {
            const auto narrow = static_cast<std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>>(bits);
            std::memcpy(&value, &narrow, sizeof(value));
        } else {
            value = static_cast<T>(bits);
        }
    }

    bool m_good = true;
};

} // namespace Qzc
