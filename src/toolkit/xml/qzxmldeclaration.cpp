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

// In the order in which they are looked for: the first of the wide ones starts as another.
struct Mark {
    Charset charset;
    const char* name; ///< of what bytes behind it are, strictly
    const char* declared;
    std::string_view bytes;
};
constexpr Mark Marks[] = {
    {KELDCharset::UTF8, "UTF-8", "UTF-8", "\xEF\xBB\xBF"},
    {KELDCharset::UCS4LE, "UTF-32LE", "UTF-32", std::string_view("\xFF\xFE\0\0", 4)},
    {KELDCharset::UCS4BE, "UTF-32BE", "UTF-32", std::string_view("\0\0\xFE\xFF", 4)},
    {KELDCharset::UTF16LE, "UTF-16LE", "UTF-16", "\xFF\xFE"},
    {KELDCharset::UTF16BE, "UTF-16BE", "UTF-16", "\xFE\xFF"},
};

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

const Mark* MarkOf(std::string_view text) {
    const auto* const found = std::find_if(std::begin(Marks), std::end(Marks), [&](const Mark& mark) {
        return text.substr(0, mark.bytes.size()) == mark.bytes;
    });
    return found != std::end(Marks) ? found : nullptr;
}

const Mark* MarkFor(Charset charset) {
    if (charset == KELDCharset::Wide)
        charset = GetWideCharset();
    if (charset == KELDCharset::UCS2LE)
        charset = KELDCharset::UTF16LE;
    else if (charset == KELDCharset::UCS2BE)
        charset = KELDCharset::UTF16BE;
    const auto* const found =
        std::find_if(std::begin(Marks), std::end(Marks), [&](const Mark& mark) { return mark.charset == charset; });
    return found != std::end(Marks) ? found : nullptr;
}

} // namespace

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
    if (end == std::string_view::npos || text.substr(0, Start.size()) != Start ||
        (Blanks.find(text[Start.size()]) == std::string_view::npos && end != Start.size()))
        return std::string_view();
    return text.substr(0, end + 2);
}

bool IsByteCharset(Charset charset) {
    const Mark* const mark = MarkFor(charset);
    return mark == nullptr || mark->charset == KELDCharset::UTF8;
}

std::string_view ByteOrderMark(Charset charset) {
    const Mark* const mark = MarkFor(charset);
    return mark != nullptr ? mark->bytes : std::string_view();
}

KeldMBString XmlFileHeader(Charset charset) {
    KeldMBString header = QzToolkit::GetXmlFileHeader(charset);
    const Mark* const mark = MarkFor(charset);
    if (mark != nullptr)
        header.Replace(QzTextCodec::GetCharsetName(charset), mark->declared);
    return header;
}

XmlFileForm DecodeXmlFile(KeldMBString& text) {
    const KeldMBString current = QzTextCodec::GetCharsetName(KELDCharset::Current);
    const Mark* const mark = MarkOf(text.View());
    const bool isWide = mark != nullptr && !IsByteCharset(mark->charset);
    XmlFileForm form = {KELDCharset::Unknown, false, mark != nullptr && !isWide};
    const int skipped = mark != nullptr ? static_cast<int>(mark->bytes.size()) : 0;
    if (isWide) { // whatever the text says of itself
        form.encoding = mark->charset;
        KeldMBString converted;
        form.isConverted =
            QzTextCodec(current, mark->name).Convert(converted, text.Cstr() + skipped, text.GetLength() - skipped) != 0;
        if (form.isConverted)
            text = std::move(converted);
        return form;
    }
    text.Delete(0, skipped);
    form.encoding = DeclaredCharset(text.View());
    if (form.encoding == KELDCharset::Current)
        form.encoding = form.hasMark ? KELDCharset::UTF8 : QzToolkit::GetCurCharset();
    // A declaration that could be read byte by byte is not in a charset of wider units, whatever it says.
    form.isConverted = form.encoding == QzToolkit::GetCurCharset() ||
                       (form.encoding != KELDCharset::Unknown && IsByteCharset(form.encoding) &&
                        QzTextCodec(QzToolkit::GetCurCharset(), form.encoding).Convert(text, text));
    return form;
}

} // namespace Qzc
