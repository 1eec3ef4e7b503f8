#pragma once

#include <cstddef>

#include "base/keldarray.h"
#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "stream/qzbytearray.h"
#include "stream/qzstream.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// Text in 16-bit units on every platform, low byte first, always ended by a zero unit: the wide text that
/// streams hold. Text that cannot be converted, or for which there is no memory, gives an empty one.
class MOTOOLKIT_API QzStringUCS2LE {
public:
    static constexpr int MaxLength = KeldMBString::MaxLength / 2 - 1; ///< so that byte counts are an int

    QzStringUCS2LE() = default;
    /// Takes all of the text, zero characters included. The charset number that `text` carries does not
    /// matter.
    QzStringUCS2LE(const KeldMBString& text, KELDCharset::Charset from);

    /// Without the zero bytes at its end. In charset 251 itself nothing is converted: the result is the bytes up to the
    /// first zero byte, of ASCII text only the first one.
    KeldMBString ToString(KELDCharset::Charset to) const;

    const unsigned short* Cstr() const { return GetChars().GetData(); }
    const KeldArray<unsigned short>& GetChars() const;                              ///< with the terminator
    int GetLength() const { return m_units.IsEmpty() ? 0 : m_units.GetSize() - 1; } ///< in units

    /// A signed 32-bit byte count, then the units, each little-endian, without the terminator. An odd count
    /// is read with a last unit of which only the low byte is there. A failed read gives an empty text.
    friend MOTOOLKIT_API QzStream& operator<<(QzStream& stream, const QzStringUCS2LE& text);
    friend MOTOOLKIT_API QzStream& operator>>(QzStream& stream, QzStringUCS2LE& text);

private:
    bool Append(const char* bytes, std::size_t count);

    KeldArray<unsigned short> m_units; // empty, or with the terminator
};

/// The same on an array of bytes.
MOTOOLKIT_API QzByteArray& operator<<(QzByteArray& bytes, const QzStringUCS2LE& text);
MOTOOLKIT_API QzByteArray& operator>>(QzByteArray& bytes, QzStringUCS2LE& text);

} // namespace Qzc
