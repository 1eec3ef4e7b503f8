#include "toolkit/log/logxml.h"

#include <algorithm>
#include <charconv>

#include "base/keldsystem.h"
#include "toolkit/qztextcodec.h"
#include "toolkit/qztoolkit.h"
#include "toolkit/xml/xmltext.h"

namespace Qzc {

namespace {

constexpr std::string_view ByteStart = "<?byte ";
constexpr std::string_view ByteEnd = "?>";

bool IsAscii(unsigned char c) {
    return c < 0x80;
}

// How many bytes the character at the start takes; 0 for what is none, or is excluded from XML beside the controls.
std::size_t Utf8Length(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    const std::size_t length = first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (length == 0 || first > 0xF4 || length > text.size())
        return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    }
    switch (first) {
    case 0xE0: return byte(1) >= 0xA0 ? length : 0;                    // shorter forms exist
    case 0xED: return byte(1) < 0xA0 ? length : 0;                     // surrogates
    case 0xEF: return byte(1) == 0xBF && byte(2) >= 0xBE ? 0 : length; // U+FFFE, U+FFFF
    case 0xF0: return byte(1) >= 0x90 ? length : 0;
    case 0xF4: return byte(1) < 0x90 ? length : 0;
    default: return length;
    }
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = Utf8Length(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

void AppendByte(std::string& markup, unsigned char byte) {
    constexpr char Digits[] = "0123456789ABCDEF";
    markup.append(ByteStart);
    markup += Digits[byte >> 4];
    markup += Digits[byte & 0xF];
    markup.append(ByteEnd);
}

} // namespace

QzTextCodec& LogXmlText::Codec(KELDCharset::Charset to, KELDCharset::Charset from) {
    if (m_codec == nullptr || m_codecTo != to || m_codecFrom != from) {
        m_codec = std::make_unique<QzTextCodec>(to, from);
        m_codecTo = to;
        m_codecFrom = from;
    }
    return *m_codec;
}

bool LogXmlText::IsText(std::string_view text, KELDCharset::Charset charset) {
    if (charset == KELDCharset::UTF8)
        return IsUtf8(text);
    if (!Codec(KELDCharset::UTF8, charset).Convert(m_converted, KeldMBString(text)))
        return false;
    return IsUtf8(m_converted.View());
}

void LogXmlText::Append(std::string& markup, std::string_view text) {
    if (std::all_of(text.begin(), text.end(), [](char c) { return IsAscii(static_cast<unsigned char>(c)); })) {
        AppendAll(markup, text, KELDCharset::UTF8, true);
        return;
    }
    const KELDCharset::Charset current = QzToolkit::GetCurCharset();
    const KELDCharset::Charset document = m_charset == KELDCharset::Current ? current : m_charset;
    const bool isText = IsText(text, current);
    if (!isText || document == current) {
        AppendAll(markup, text, document, isText);
        return;
    }
    KeldMBString converted;
    if (Codec(document, current).Convert(converted, KeldMBString(text)))
        AppendAll(markup, converted.View(), document, true);
    else
        AppendAll(markup, text, document, false);
}

void LogXmlText::AppendAll(std::string& markup, std::string_view text, KELDCharset::Charset charset,
                           bool isText) const {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (!IsAscii(c)) {
            if (!isText) {
                AppendByte(markup, c);
                continue;
            }
            markup += text[i];
            if (KeldSystem::IsLeadByte(charset, c) && i + 1 < text.size())
                markup += text[++i];
            continue;
        }
        switch (c) {
        case '<': markup += "&lt;"; break;
        case '&': markup += "&amp;"; break;
        case '>': markup += "&gt;"; break;
        case '\r': markup += "&#13;"; break; // readers turn a bare one into a line feed
        case '\t':
        case '\n': markup += text[i]; break;
        default:
            if (c < ' ')
                AppendByte(markup, c);
            else
                markup += text[i];
        }
    }
}

KeldMBString ReadXmlText(std::string_view markup) {
    KeldMBString text;
    std::size_t start = 0;
    while ((start = markup.find(ByteStart)) != std::string_view::npos) {
        text += Unescaped(markup.substr(0, start));
        const std::string_view digits = markup.substr(start + ByteStart.size(), 2);
        int byte = 0;
        std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
        text += static_cast<char>(byte);
        const std::size_t end = markup.find(ByteEnd, start);
        markup.remove_prefix(end != std::string_view::npos ? end + ByteEnd.size() : markup.size());
    }
    text += Unescaped(markup);
    return text;
}

} // namespace Qzc
