#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// Where a text is put, which tells the bytes that become entities: <&> in an element, <&>'" in an attribute. A zero
/// byte, which would end the document, becomes a numeric reference in both.
enum class TextIn : unsigned char { Element, Attribute };

/// Appends a text escaped.
void AppendEscaped(KeldMBString& markup, std::string_view text, TextIn place);

/// The same to memory that has room for it and EscapeSlack more; where it then ends. A text's length becomes MaxEscape
/// times as long at most, which EscapedLength tells exactly.
char* WriteEscaped(char* to, std::string_view text, TextIn place);
constexpr std::size_t MaxEscape = 6;
constexpr std::size_t EscapeSlack = 16;
std::size_t EscapedLength(std::string_view text, TextIn place);

/// A text with its references resolved: the five entities, and numeric references of at most seven digits,
/// whose characters become UTF-8 bytes whatever the charset. An ampersand that starts neither stands for
/// itself.
KeldMBString Unescaped(std::string_view text);
void AppendUnescaped(std::string& data, std::string_view text);

/// Appends what is data in the text between two tags: character data with its references resolved and CDATA
/// sections as written, without other nodes.
void AppendContent(std::string& data, std::string_view text);

std::size_t FindReference(std::string_view text); ///< the first ampersand, or the end
std::size_t FindMarkup(std::string_view text);    ///< the first ampersand or '<', or the end

} // namespace Qzc
