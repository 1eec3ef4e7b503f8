#pragma once

#include <string>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// UTF-8 text: a value made from a KeldMBString, that does not change. Text that cannot be converted, or for which
/// there is no memory, gives an empty one.
class MOTOOLKIT_API QzStringUTF8 {
public:
    QzStringUTF8() = default;
    QzStringUTF8(const QzStringUTF8& other) noexcept;
    QzStringUTF8(QzStringUTF8&& other) noexcept = default;
    QzStringUTF8& operator=(const QzStringUTF8& other) noexcept;
    QzStringUTF8& operator=(QzStringUTF8&& other) noexcept = default;
    ~QzStringUTF8() = default;
    /// Takes text of a charset up to its first zero character; the charset number that `text` carries does
    /// not matter. UTF-8 is taken as it is, unchecked.
    QzStringUTF8(const KeldMBString& text, KELDCharset::Charset from);

    /// The text in a charset, without the zero bytes at its end. The result carries no charset number of its
    /// own: it says 1, the current one.
    KeldMBString ToString(KELDCharset::Charset to) const;

    const char* Cstr() const { return m_text.c_str(); }
    int GetLength() const { return static_cast<int>(m_text.size()); } ///< in bytes

private:
    std::string m_text;
};

} // namespace Qzc
