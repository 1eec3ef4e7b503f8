#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/keldcharset.h"

/// Characters of wide text, which has some of them as a pair of units where a unit has 16 bits.
namespace Motool {

/// Wide text with its pairs: the toolkit's own has none.
constexpr KELD::KELDCharset::Charset WideCharset =
    sizeof(wchar_t) == 2 ? KELD::KELDCharset::UTF16LE : KELD::KELDCharset::Wide;

/// Text without zero bytes in wide text, and back; empty when it is no text of the charset, or that lacks a character.
std::wstring ToWide(std::string_view text, KELD::KELDCharset::Charset charset);
std::string FromWide(std::wstring_view text, KELD::KELDCharset::Charset charset);

/// How many units the first character of a text has that is not empty.
inline std::size_t LetterLength(std::wstring_view text) {
    if constexpr (sizeof(wchar_t) == 2) {
        if (text.size() > 1 && (text[0] & 0xFC00) == 0xD800 && (text[1] & 0xFC00) == 0xDC00)
            return 2;
    }
    return 1;
}

inline std::uint32_t UnitValue(wchar_t unit) {
    return static_cast<std::uint32_t>(std::char_traits<wchar_t>::to_int_type(unit));
}

/// The number of one character.
inline std::uint32_t LetterValue(std::wstring_view letter) {
    if (letter.size() == 1)
        return UnitValue(letter[0]);
    return 0x10000 + ((UnitValue(letter[0]) & 0x3FF) << 10) + (UnitValue(letter[1]) & 0x3FF);
}

/// Calls `visit` with each character of a text, as a piece of it.
template <class Visit>
void ForEachLetter(std::wstring_view text, Visit visit) {
    while (!text.empty()) {
        const std::size_t length = LetterLength(text);
        visit(text.substr(0, length));
        text.remove_prefix(length);
    }
}

/// Takes the last character off a text that is not empty.
template <class Text>
void DropLastLetter(Text& text) {
    const std::size_t size = text.size();
    text.resize(size > 1 && LetterLength(std::wstring_view(text).substr(size - 2)) == 2 ? size - 2 : size - 1);
}

} // namespace Motool
