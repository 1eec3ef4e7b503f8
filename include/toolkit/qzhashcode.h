#pragma once

#include <cstdint>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/motoolkitexport.h"

namespace Qzc {

/// Signed 32-bit hash codes of the basic types, for tables keyed by such values. The same on every platform,
/// and stored by callers, so no code ever changes. Any thread.
class MOTOOLKIT_API QzHashCode {
public:
    static int ByteToHashCode(unsigned char value);  ///< the value itself
    static int BoolToHashCode(unsigned char value);  ///< 1 or 0
    static int ShortToHashCode(short value);         ///< value | value << 16, sign-extended before
    static int LONGToHashCode(std::int64_t value);   ///< the low 32 bits
    static int PointerToHashCode(const void* value); ///< the low 32 bits of the address
    static int FloatToHashCode(float value);         ///< the bits; 0 for zeros of either sign
    static int DoubleToHashCode(double value);       ///< both halves of the bits XORed; 0 for zeros

    /// Over the bytes, which enter two lanes in turn: depends on the charset that the text is in.
    static int FastStringToHashCode(const KeldMBString& text);

    /// Over the 16-bit units of the text, read in the current charset (whatever charset number it carries);
    /// every unit but the first enters both lanes. The same text gives the same code whatever the current
    /// charset is. A text that cannot be converted gives the code of an empty one.
    static int StringToHashCode(const KeldMBString& text);
};

} // namespace Qzc
