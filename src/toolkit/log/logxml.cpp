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

bool IsTextOfCurrentCharset(std::string_view text) {
    KeldMBString wide;
    if (!QzTextCodec(KELDCharset::UCS4LE, QzToolkit::GetCurCharset()).Convert(wide, KeldMBString(text)))
        return false;
    const std::string_view units = wide.View();
    for (std::size_t i = 0; i + 4 <= units.size(); i += 4) {
        const std::string_view unit = units.substr(i, 4);
        if (unit == std::string_view("\xFE\xFF\0\0", 4) || unit == std::string_view("\xFF\xFF\0\0", 4))
            return false; // what XML excludes beside the controls
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

void AppendXmlText(std::string& markup, std::string_view text) {
    const bool allAscii =
        std::all_of(text.begin(), text.end(), [](char c) { return IsAscii(static_cast<unsigned char>(c)); });
    const bool isText = allAscii || IsTextOfCurrentCharset(text);
    const KELDCharset::Charset charset = QzToolkit::GetCurCharset();
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
