#pragma once

#include <utility>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "stream/qzbytearray.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// A KeldMBString that hashes itself, loads its text from the message resources and changes its charset.
class MOTOOLKIT_API QzStringEx : public KeldMBString {
public:
    QzStringEx() = default;
    QzStringEx(const KeldMBString& text) : KeldMBString(text) {} ///< the same text with its charset number
    QzStringEx(KeldMBString&& text) noexcept : KeldMBString(std::move(text)) {} ///< likewise
    using KeldMBString::operator=;                                              // gives the base

    /// h = (h * 33) ^ byte over the bytes, each sign-extended, from h = 0 and in 32 bits.
    unsigned int HashVal() const;

    /// Converts the text from its charset to another and takes that number. False, and nothing changed, when
    /// either charset is unknown or the text cannot be converted.
    unsigned char ChangeCharset(int charset);

    /// Replaces the text by the one that the configuration's "resource" file holds under a key, an empty one
    /// when there is none. Mind the sense: true when nothing was found, false when a text was loaded.
    unsigned char LoadResString(unsigned int id); ///< the key is the number in decimal
    unsigned char LoadResString(const KeldMBString& key);

    // Found only for a QzStringEx: a KeldMBString, which converts to one, goes to the stream's own operators.
    /// A signed 32-bit byte count, then the bytes. A failed read gives an empty text.
    friend MOTOOLKIT_API QzByteArray& operator<<(QzByteArray& bytes, const QzStringEx& text);
    friend MOTOOLKIT_API QzByteArray& operator>>(QzByteArray& bytes, QzStringEx& text);
};

} // namespace Qzc
