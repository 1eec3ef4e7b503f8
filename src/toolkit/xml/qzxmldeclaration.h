#pragma once

#include <string_view>

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// How the bytes of an XML file were, beside the text that they make.
struct XmlFileForm {
    KELDCharset::Charset encoding; ///< `Unknown` where a name that is not known is declared
    bool isConverted;              ///< the text is in the current charset; else it is the bytes as they were
    bool hasMark;                  ///< a UTF-8 byte-order mark stood in front; the text is without it
};

/// Takes the bytes of an XML file to text in the current charset, by their byte-order mark where that is one of
/// UTF-16 or UTF-32, and else by the encoding that they declare; by a UTF-8 mark where they declare none, and without
/// any as the current charset. Bytes that are no text of it, or of an encoding that is not known, stay as they are.
XmlFileForm DecodeXmlFile(KeldMBString& text);

/// The encoding that a text declares, read as it is from a file: `Unknown` for a name that is not known, `Current`
/// where there is none.
KELDCharset::Charset DeclaredCharset(std::string_view text);

/// The XML declaration of a text, empty where it does not start with one.
std::string_view XmlDeclaration(std::string_view text);

/// A charset of units of two or four bytes, as files are in it.
struct WideForm {
    const char* name;     ///< of the bytes behind the mark
    const char* declared; ///< the mark tells the rest
    std::string_view mark;
};

/// Null for all other charsets.
const WideForm* FindWideForm(KELDCharset::Charset charset);

inline constexpr std::string_view Utf8Mark = "\xEF\xBB\xBF";

/// The declaration of a file in this charset.
KeldMBString XmlFileHeader(KELDCharset::Charset charset);

} // namespace Qzc
