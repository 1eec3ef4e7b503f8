#include "toolkit/qzstringucs2le.h"

#include <cstdint>
#include <cstring>

#include "toolkit/text/converter.h"

namespace Qzc {

namespace {

// What an empty text shows: it has no memory of its own, so that it can be made when there is none.
const KeldArray<unsigned short>& Terminator() {
    static const KeldArray<unsigned short> s_units = [] {
        KeldArray<unsigned short> units;
        units.Add(0);
        return units;
    }();
    return s_units;
}

// Made with the library, when there is memory.
[[maybe_unused]] const KeldArray<unsigned short>& s_madeEarly = Terminator();

} // namespace

const KeldArray<unsigned short>& QzStringUCS2LE::GetChars() const {
    return m_units.IsEmpty() ? Terminator() : m_units;
}

bool QzStringUCS2LE::Append(const char* bytes, std::size_t count) {
    const auto units = static_cast<std::size_t>(GetLength()) + count / 2;
    if (!KELDASSERT(units <= MaxLength))
        return false;
    const int length = GetLength();
    m_units.SetSize(static_cast<int>(units) + 1); // the new last one is the terminator
    if (m_units.GetSize() != static_cast<int>(units) + 1)
        return false;
    std::memcpy(m_units.GetData() + length, bytes, count / 2 * 2);
    m_units[static_cast<int>(units)] = 0;
    return true;
}

QzStringUCS2LE::QzStringUCS2LE(const KeldMBString& text, KELDCharset::Charset from) {
    const ConverterUse converter(KELDCharset::UCS2LE, from);
    if (!converter)
        return;
    const auto size = static_cast<std::size_t>(text.GetLength());
    bool isWhole = true;
    const auto append = [&](const char* bytes, std::size_t count) { isWhole = isWhole && Append(bytes, count); };
    if (converter->IsSameCharset())
        append(text.Cstr(), size);
    else if (!converter->ConvertPieces(
                 text.Cstr(), size, [](std::size_t) {}, append))
        isWhole = false;
    if (!isWhole)
        m_units.RemoveAll();
}

KeldMBString QzStringUCS2LE::ToString(KELDCharset::Charset to) const {
    const ConverterUse converter(to, KELDCharset::UCS2LE);
    if (!converter)
        return KeldMBString();
    const KeldArray<unsigned short>& units = GetChars();
    const char* const bytes = reinterpret_cast<const char*>(units.GetData());
    if (converter->IsSameCharset())
        return KeldMBString(bytes);
    std::string converted;
    ConvertTo(converted, *converter, bytes, static_cast<std::size_t>(units.GetSize()) * 2, KeldMBString::MaxLength);
    KeldMBString text(std::move(converted));
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
    if (size > QzStringUCS2LE::MaxLength * 2) {
        stream.SetFailed();
        return stream;
    }
    const int count = size / 2 + 1;
    units.SetSize(count + 1); // with room for a terminator, and zeros where nothing is read
    if (units.GetSize() != count + 1) {
        units.RemoveAll();
        stream.SetFailed();
    } else if (stream.Read(units.GetData(), size) != size) {
        units.RemoveAll();
    } else if (units[count - 1] == 0) {
        units.SetSize(count);
    }
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
