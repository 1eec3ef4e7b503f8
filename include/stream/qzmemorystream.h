#pragma once

#include <memory>

#include "stream/qzstream.h"

namespace Qzc {

/// A stream in memory: its own, growing as it is written, or a view of bytes that somebody else keeps.
class MOSTREAM_API QzMemoryStream : public QzStream {
public:
    QzMemoryStream() = default;
    /// Reads the given bytes in place, so they must outlive the stream; writing to it fails. A null pointer
    /// or a negative length is an empty stream.
    QzMemoryStream(const void* data, std::int64_t length);
    ~QzMemoryStream() override;

    bool Seek(std::int64_t position) override;
    std::int64_t GetLength() const override { return m_readEnd - m_window; }
    const unsigned char* GetData() const { return m_window; } ///< GetLength() bytes; valid until the next write

    /// Makes room for `capacity` bytes in all, so that writing that many moves nothing. Room that cannot be
    /// had is not made.
    void Reserve(std::int64_t capacity);

protected:
    std::int64_t ReadMore(unsigned char* buffer, std::int64_t count) override;
    std::int64_t WriteMore(const unsigned char* buffer, std::int64_t count) override;

private:
    /// Makes room; gives what was the storage, for as long as somebody still reads it.
    std::unique_ptr<unsigned char[]> Grow(std::int64_t capacity);

    std::unique_ptr<unsigned char[]> m_storage;
    bool m_isView = false;
};

} // namespace Qzc
