#include "toolkit/xml/qzxmldeclaration.h"

#include <string_view>

#include "toolkit/qztextcodec.h"
#include "toolkit/qztoolkit.h"

namespace Qzc {

namespace {

using Charset = KELDCharset::Charset;

constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view Blanks = " \t\r\n";

KeldMBString Trimmed(std::string_view text) {
    KeldMBString trimmed(text);
    trimmed.TrimLeft();
    trimmed.TrimRight();
    return trimmed;
}

// The common form: encoding="NAME" with nothing between it and the end of the declaration.
KeldMBString LastWord(std::string_view text) {
    constexpr std::string_view Start = "encoding=\"";
    const std::size_t found = text.find(Start);
    const std::size_t end = text.find("?>");
    if (found == 0 || found == std::string_view::npos || end == std::string_view::npos || found + Start.size() >= end)
        return KeldMBString();
    const std::size_t name = found + Start.size();
    return Trimmed(text.substr(name, end - 1 - name));
}

// Any other form that XML allows: single quotes, blanks around the equals sign, words behind it.
KeldMBString PseudoAttribute(std::string_view text) {
    if (text.substr(0, 5) != "<?xml")
        return KeldMBString();
    text = text.substr(0, text.find("?>"));
    constexpr std::string_view Name = "encoding";
    std::size_t at = text.find(Name);
    at = at == std::string_view::npos ? at : text.find_first_not_of(Blanks, at + Name.size());
    at = at == std::string_view::npos || text[at] != '=' ? std::string_view::npos
                                                         : text.find_first_not_of(Blanks, at + 1);
    if (at == std::string_view::npos || (text[at] != '"' && text[at] != '\''))
        return KeldMBString();
    const std::size_t end = text.find(text[at], at + 1);
    return end == std::string_view::npos ? KeldMBString() : Trimmed(text.substr(at + 1, end - at - 1));
}

// A declaration that could be read byte by byte is not in a charset of wider units, whatever it says.
bool IsByteCharset(Charset charset) {
    return charset != KELDCharset::UTF16LE && charset != KELDCharset::UTF16BE &&
           !(charset >= KELDCharset::UCS2LE && charset <= KELDCharset::UCS4BE);
}

} // namespace

Charset DecodeXmlFile(KeldMBString& text) {
    const Charset current = QzToolkit::GetCurCharset();
    const bool marked = text.View().substr(0, ByteOrderMark.size()) == ByteOrderMark;
    if (marked)
        text.Delete(0, static_cast<int>(ByteOrderMark.size()));

    Charset encoding = QzTextCodec::GetCharset(LastWord(text.View()));
    if (encoding == KELDCharset::Unknown) {
        const KeldMBString name = PseudoAttribute(text.View());
        if (!name.IsEmpty())
            encoding = QzTextCodec::GetCharset(name);
        else
            encoding = marked ? KELDCharset::UTF8 : current;
    }
    if (encoding != KELDCharset::Unknown && encoding != current && IsByteCharset(encoding))
        QzTextCodec(current, encoding).Convert(text, text);
    return encoding;
}

} // namespace Qzc
