#pragma once

#include <string>
#include <string_view>

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// Appends a text in the current charset as the content of an element that every XML reader takes. Bytes that
/// no such content can hold (control characters, what is no text of the charset) become instructions: the
/// byte 1 is <?byte 01?>.
void AppendXmlText(std::string& markup, std::string_view text);

/// The text again.
KeldMBString ReadXmlText(std::string_view markup);

} // namespace Qzc
