#include "toolkit/configuration/entryname.h"

#include <string>
#include <string_view>

#include "base/keldsystem.h"

namespace Qzc {

namespace {

constexpr std::string_view EscapeStart = "_x00";
constexpr std::size_t EscapeLength = 7;
constexpr std::string_view Digits = "0123456789ABCDEF";
constexpr std::string_view NoTag(" \t\r\n<>=\\/?!\0", 12);

bool IsLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Whether a character can be a tag's, at its start or behind it. All beyond ASCII can.
bool IsPlain(char c, bool isFirst) {
    if (IsLetter(c) || c == '_' || c == ':' || static_cast<unsigned char>(c) >= 0x80)
        return true;
    return !isFirst && ((c >= '0' && c <= '9') || c == '-' || c == '.');
}

// The character that an escape at the start of `text` stands for, 0 where there is none.
char Escaped(std::string_view text, bool isFirst) {
    if (text.size() < EscapeLength || text.substr(0, EscapeStart.size()) != EscapeStart ||
        text[EscapeLength - 1] != '_')
        return 0;
    const std::size_t high = Digits.find(text[4]);
    const std::size_t low = Digits.find(text[5]);
    if (high >= 8 || low == std::string_view::npos)
        return 0;
    const char c = static_cast<char>(high * 16 + low);
    const bool isWritten = c == '_' || (!IsPlain(c, isFirst) && NoTag.find(c) == std::string_view::npos);
    return isWritten ? c : '\0';
}

// Copies the two-byte character that `text` may start with, whose second byte looks like something else.
bool CopyPair(std::string& copy, std::string_view& text) {
    if (text.size() < 2 || !KeldSystem::IsLeadByte(KELDCharset::Current, static_cast<unsigned char>(text[0])))
        return false;
    copy.append(text.substr(0, 2));
    text.remove_prefix(2);
    return true;
}

void AppendEscape(std::string& tag, std::size_t code) {
    tag.append(EscapeStart).append({Digits[code / 16], Digits[code % 16], '_'});
}

} // namespace

KeldMBString TagOfName(const KeldMBString& name) {
    std::string tag;
    for (std::string_view rest = name.View(); !rest.empty();) {
        if (CopyPair(tag, rest))
            continue;
        const char c = rest[0];
        if (NoTag.find(c) != std::string_view::npos)
            return KeldMBString();
        if (IsPlain(c, tag.empty()) && Escaped(rest, tag.empty()) == 0)
            tag += c;
        else
            AppendEscape(tag, static_cast<unsigned char>(c));
        rest.remove_prefix(1);
    }
    return KeldMBString(std::move(tag));
}

KeldMBString NameOfTag(const KeldMBString& tag) {
    if (tag.View().find(EscapeStart) == std::string_view::npos)
        return tag;
    std::string name;
    for (std::string_view rest = tag.View(); !rest.empty();) {
        if (CopyPair(name, rest))
            continue;
        const char escaped = Escaped(rest, name.empty());
        name += escaped != 0 ? escaped : rest[0];
        rest.remove_prefix(escaped != 0 ? EscapeLength : 1);
    }
    return KeldMBString(std::move(name));
}

} // namespace Qzc
