#include "stream/qzstream.h"

#include <algorithm>

#include "base/keldassert.h"

namespace Qzc {

QzStream::~QzStream() = default;

std::int64_t QzStream::ReadRest(unsigned char* buffer, std::int64_t count) {
    const std::int64_t done = ReadMore(buffer, count);
    if (done < count) {
        std::memset(buffer + done, 0, static_cast<std::size_t>(count - done));
        m_good = false;
    }
    return done;
}

std::int64_t QzStream::WriteRest(const unsigned char* buffer, std::int64_t count) {
    const std::int64_t done = WriteMore(buffer, count);
    if (done < count)
        m_good = false;
    return done;
}

int QzStream::ReadCount(int elementSize) {
    std::int32_t count = 0;
    *this >> count;
    if (!KELDASSERT(elementSize >= 1))
        elementSize = 1;
    const std::int64_t size = static_cast<std::int64_t>(count) * elementSize;
    // The window is looked at first: a file is asked for its length only about what lies beyond.
    if (count < 0 || (size > m_readEnd - m_cursor && size > GetRemaining())) {
        SetFailed();
        return 0;
    }
    return count;
}

QzStream& QzStream::operator<<(const KeldMBString& text) {
    *this << static_cast<std::int32_t>(text.GetLength());
    Write(text.Cstr(), text.GetLength());
    return *this;
}

QzStream& QzStream::operator>>(KeldMBString& text) {
    const KELDCharset::Charset charset = text.GetCharset();
    const int size = ReadCount(1);
    std::string bytes;
    if (!TryMemory([&] { bytes.resize(static_cast<std::size_t>(size)); }))
        SetFailed();
    else if (Read(bytes.data(), size) != size)
        bytes.clear();
    text = KeldMBString(std::move(bytes));
    text.SetCharset(charset);
    return *this;
}

} // namespace Qzc
