#pragma once

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// Takes the bytes of an XML file to text in the current charset, by the encoding that they declare, and
/// returns that encoding: the current charset where none is declared, `Unknown` where the name is not known.
/// Bytes that cannot be converted stay as they are. A UTF-8 byte-order mark is dropped.
KELDCharset::Charset DecodeXmlFile(KeldMBString& text);

} // namespace Qzc
