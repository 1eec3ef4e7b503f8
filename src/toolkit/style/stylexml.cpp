#include "toolkit/style/stylexml.h"

#include <algorithm>

#include "toolkit/qzstringw.h"

namespace Qzc {

namespace {

bool StartsName(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':';
}

bool GoesOnInName(char c) {
    return StartsName(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

template <class Text>
bool IsName(const Text& text, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        // NOLINTNEXTLINE(bugprone-signed-char-misuse): what is beyond ASCII is large with a sign or without
        const auto unit = static_cast<std::uint32_t>(text[i]);
        if (unit >= 0x80)
            continue; // of what is beyond ASCII nearly all may stand in names
        const char c = static_cast<char>(unit);
        if (!(i == 0 ? StartsName(c) : GoesOnInName(c)))
            return false;
    }
    return length != 0;
}

} // namespace

bool IsXmlName(const KeldMBString& text) {
    const std::string_view bytes = text.View();
    if (std::all_of(bytes.begin(), bytes.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; }))
        return IsName(bytes, bytes.size());
    // The second byte of a character may look like a bracket.
    const QzStringW wide(text);
    return IsName(wide.Cstr(), static_cast<std::size_t>(wide.GetLength()));
}

} // namespace Qzc
