#pragma once

#include "stream/qzmemorystream.h"

namespace Qzc {

/// A growing array of bytes that values are written to and read from: the memory stream, with array access.
class QzByteArray : public QzMemoryStream {
public:
    using QzMemoryStream::QzMemoryStream;

    /// The byte at an index, 0 when there is none.
    unsigned char GetAt(std::int64_t index) const {
        return index >= 0 && index < GetLength() ? GetData()[index] : static_cast<unsigned char>(0);
    }
    unsigned char operator[](std::int64_t index) const { return GetAt(index); }
};

} // namespace Qzc
