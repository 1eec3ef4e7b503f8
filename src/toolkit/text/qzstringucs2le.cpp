#include "toolkit/qzstringucs2le.h"

#include <cstdint>
#include <cstring>

#include "toolkit/qztextcodec.h"

namespace Qzc {

QzStringUCS2LE::QzStringUCS2LE() {
    m_units.Add(0);
}

QzStringUCS2LE::QzStringUCS2LE(const KeldMBString& text, KELDCharset::Charset from) {
    KeldMBString wide;
    QzTextCodec(KELDCharset::UCS2LE, from).Convert(wide, text);
    const int length = KELDASSERT(wide.GetLength() / 2 <= MaxLength) ? wide.GetLength() / 2 : 0;
    m_units.SetSize(length + 1);
    std::memcpy(m_units.GetData(), wide.Cstr(), static_cast<std::size_t>(length) * 2);
}

KeldMBString QzStringUCS2LE::ToString(KELDCharset::Charset to) const {
    KeldMBString text;
    QzTextCodec(to, KELDCharset::UCS2LE)
        .Convert(text, reinterpret_cast<const char*>(m_units.GetData()), m_units.GetSize() * 2);
    text.TrimRight('\0');
    return text;
}

QzStream& operator<<(QzStream& stream, const QzStringUCS2LE& text) {
    const std::int32_t size = text.GetLength() * 2;
    stream << size;
    stream.Write(text.Cstr(), size);
    return stream;
}

QzStream& operator>>(QzStream& stream, QzStringUCS2LE& text) {
    KeldArray<unsigned short>& units = text.m_units;
    units.RemoveAll();
    const int size = stream.ReadCount(1);
    if (size <= QzStringUCS2LE::MaxLength * 2) {
        units.SetSize(size / 2 + 1);
        if (stream.Read(units.GetData(), size) != size)
            units.RemoveAll();
    } else {
        stream.SetFailed();
    }
    if (units.IsEmpty() || units[units.GetSize() - 1] != 0)
        units.Add(0);
    return stream;
}

QzByteArray& operator<<(QzByteArray& bytes, const QzStringUCS2LE& text) {
    static_cast<QzStream&>(bytes) << text;
    return bytes;
}

QzByteArray& operator>>(QzByteArray& bytes, QzStringUCS2LE& text) {
    static_cast<QzStream&>(bytes) >> text;
    return bytes;
}

} // namespace Qzc
