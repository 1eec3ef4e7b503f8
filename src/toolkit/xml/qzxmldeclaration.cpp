#include "toolkit/xml/qzxmldeclaration.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "toolkit/qztextcodec.h"
#include "toolkit/qztoolkit.h"
#include "toolkit/text/widecharset.h"

namespace Qzc {

namespace {

using Charset = KELDCharset::Charset;

// In the order in which marks are looked for: the first starts as another.
struct Wide {
    Charset charset;
    WideForm form;
};
constexpr Wide WideForms[] = {
    {KELDCharset::UCS4LE, {"UTF-32LE", "UTF-32", std::string_view("\xFF\xFE\0\0", 4)}},
    {KELDCharset::UCS4BE, {"UTF-32BE", "UTF-32", std::string_view("\0\0\xFE\xFF", 4)}},
    {KELDCharset::UTF16LE, {"UTF-16LE", "UTF-16", "\xFF\xFE"}},
    {KELDCharset::UTF16BE, {"UTF-16BE", "UTF-16", "\xFE\xFF"}},
};

// Which of them stands for a charset.
Charset WideFormOf(Charset charset) {
    switch (charset) {
    case KELDCharset::Wide: return WideFormOf(GetWideCharset());
    case KELDCharset::UCS2:
    case KELDCharset::UCS2LE:
    case KELDCharset::UTF16: return KELDCharset::UTF16LE;
    case KELDCharset::UCS2BE: return KELDCharset::UTF16BE;
    case KELDCharset::UTF32: return KELDCharset::UCS4LE;
    case KELDCharset::UCS4: return KELDCharset::UCS4BE;
    default: return charset;
    }
}

bool StartsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

// What reads as a declaration byte by byte is in no charset in which these bytes are something else.
bool CanBeDeclared(Charset charset) {
    const KeldMBString start("<?xml ");
    KeldMBString read;
    return QzTextCodec(KELDCharset::UTF8, charset).Convert(read, start) && read == start;
}

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

} // namespace

const WideForm* FindWideForm(Charset charset) {
    const auto* const found = std::find_if(std::begin(WideForms), std::end(WideForms),
                                           [&](const Wide& wide) { return wide.charset == WideFormOf(charset); });
    return found != std::end(WideForms) ? &found->form : nullptr;
}

Charset DeclaredCharset(std::string_view text) {
    const Charset charset = QzTextCodec::GetCharset(LastWord(text));
    if (charset != KELDCharset::Unknown)
        return charset;
    const KeldMBString name = PseudoAttribute(text);
    return name.IsEmpty() ? KELDCharset::Current : QzTextCodec::GetCharset(name);
}

std::string_view XmlDeclaration(std::string_view text) {
    constexpr std::string_view Start = "<?xml";
    const std::size_t end = text.find("?>");
    if (end == std::string_view::npos || !StartsWith(text, Start) ||
        (Blanks.find(text[Start.size()]) == std::string_view::npos && end != Start.size()))
        return std::string_view();
    return text.substr(0, end + 2);
}

KeldMBString XmlFileHeader(Charset charset) {
    KeldMBString header = QzToolkit::GetXmlFileHeader(charset);
    const WideForm* const wide = FindWideForm(charset);
    if (wide != nullptr)
        header.Replace(QzTextCodec::GetCharsetName(charset), wide->declared);
    return header;
}

XmlFileForm DecodeXmlFile(KeldMBString& text) {
    const Charset current = QzToolkit::GetCurCharset();
    XmlFileForm form = {KELDCharset::Unknown, false, StartsWith(text.View(), Utf8Mark)};
    for (const Wide& wide : WideForms) { // whatever the text says of itself
        if (!StartsWith(text.View(), wide.form.mark))
            continue;
        form.encoding = wide.charset;
        const int skipped = static_cast<int>(wide.form.mark.size());
        KeldMBString converted;
        form.isConverted = QzTextCodec(QzTextCodec::GetCharsetName(current), wide.form.name)
                               .Convert(converted, text.Cstr() + skipped, text.GetLength() - skipped) != 0;
        if (form.isConverted)
            text = std::move(converted);
        return form;
    }
    if (form.hasMark)
        text.Delete(0, static_cast<int>(Utf8Mark.size()));
    form.encoding = DeclaredCharset(text.View());
    if (form.encoding == KELDCharset::Current)
        form.encoding = form.hasMark ? KELDCharset::UTF8 : current;
    form.isConverted =
        form.encoding == current || (form.encoding != KELDCharset::Unknown && CanBeDeclared(form.encoding) &&
                                     QzTextCodec(current, form.encoding).Convert(text, text));
    return form;
}

} // namespace Qzc
