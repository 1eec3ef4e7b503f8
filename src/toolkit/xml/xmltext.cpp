#include "toolkit/xml/xmltext.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace Qzc {

void AppendEscaped(KeldMBString& markup, std::string_view text, std::string_view special) {
    std::array<bool, 256> stops{true}; // the zero byte is one
    for (const char c : special)
        stops[static_cast<unsigned char>(c)] = true;
    std::size_t copied = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!stops[static_cast<unsigned char>(text[at])])
            continue;
        markup.Append(text.substr(copied, at - copied));
        switch (text[at]) {
        case '<': markup += "&lt;"; break;
        case '&': markup += "&amp;"; break;
        case '>': markup += "&gt;"; break;
        case '\'': markup += "&apos;"; break;
        case '"': markup += "&quot;"; break;
        default: markup += "&#0;"; break;
        }
        copied = at + 1;
    }
    markup.Append(text.substr(copied));
}

namespace {

// A numeric reference without its "&#": the digits stand before `text`'s first semicolon. False when they are
// too many or do not end.
bool AppendReference(std::string& data, std::string_view& text) {
    constexpr std::size_t MaxDigits = 7;
    std::string_view digits = text;
    const int base = !digits.empty() && digits[0] == 'x' ? 16 : 10;
    digits.remove_prefix(base == 16 ? 1 : 0);
    const std::size_t length = digits.substr(0, MaxDigits + 1).find(';');
    if (length == std::string_view::npos)
        return false;
    char number[MaxDigits + 1] = {};
    std::copy_n(digits.data(), length, number);
    const auto value = static_cast<unsigned>(std::strtol(number, nullptr, base));
    const auto put = [&](unsigned byte) { data += static_cast<char>(byte); };
    if (value < 0x80) {
        put(value);
    } else if (value < 0x800) {
        put(0xC0 | value >> 6);
        put(0x80 | (value & 0x3F));
    } else {
        put(0xE0 | (value >> 12 & 0x0F));
        put(0x80 | (value >> 6 & 0x3F));
        put(0x80 | (value & 0x3F));
    }
    text = digits.substr(length + 1);
    return true;
}

bool AppendEntity(std::string& data, std::string_view& text) {
    static constexpr struct {
        std::string_view name;
        char c;
    } Entities[] = {{"lt;", '<'}, {"amp;", '&'}, {"gt;", '>'}, {"apos;", '\''}, {"quot;", '"'}};
    for (const auto& entity : Entities) {
        if (text.substr(0, entity.name.size()) == entity.name) {
            data += entity.c;
            text.remove_prefix(entity.name.size());
            return true;
        }
    }
    return false;
}

} // namespace

KeldMBString Unescaped(std::string_view text) {
    std::size_t at = text.find('&');
    if (at == std::string_view::npos)
        return KeldMBString(text);
    std::string data;
    data.reserve(text.size());
    for (; at != std::string_view::npos; at = text.find('&')) {
        data.append(text.substr(0, at));
        text.remove_prefix(at + 1);
        bool resolved = false;
        if (!text.empty() && text[0] == '#') {
            std::string_view rest = text.substr(1);
            resolved = AppendReference(data, rest);
            if (resolved)
                text = rest;
        } else {
            resolved = AppendEntity(data, text);
        }
        if (!resolved)
            data += '&';
    }
    data.append(text);
    return KeldMBString(std::move(data));
}

} // namespace Qzc
