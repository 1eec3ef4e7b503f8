#pragma once

#include <memory>

#include "stream/qzfile.h"
#include "stream/qzstream.h"

namespace Qzc {

/// A stream over a file, through one buffer that serves reading and writing in turn.
class MOSTREAM_API QzFileStream : public QzStream {
public:
    using Direction = QzFile::Access;              ///< how the file is opened
    static constexpr int DefaultBufferSize = 8192; ///< in bytes

    QzFileStream() = default;
    /// Opens; IsOpen and GetError say whether it worked.
    QzFileStream(const KeldMBString& path, Direction direction, int bufferSize = DefaultBufferSize);
    ~QzFileStream() override; ///< closes; call Close first to learn whether everything was written

    /// Closes what was open and opens the file. The buffer size is in bytes, at least 1 is taken.
    bool Open(const KeldMBString& path, Direction direction, int bufferSize = DefaultBufferSize);
    bool Close(); ///< writes what is in the buffer; false when that or the closing failed
    bool IsOpen() const { return m_file.IsOpen(); }
    bool Flush(); ///< hands what is in the buffer to the system

    bool Seek(std::int64_t position) override;
    std::int64_t GetLength() const override;                    ///< counts what is still in the buffer; 0 when closed
    KeldMBString GetError() const { return m_file.GetError(); } ///< the system's words for the last failure

protected:
    std::int64_t ReadMore(unsigned char* buffer, std::int64_t count) override;
    std::int64_t WriteMore(const unsigned char* buffer, std::int64_t count) override;

private:
    void ResetWindow(std::int64_t position);

    QzFile m_file;
    Direction m_direction = Direction::Read;
    std::unique_ptr<unsigned char[]> m_buffer;
    std::int64_t m_bufferSize = 0;
};

} // namespace Qzc
