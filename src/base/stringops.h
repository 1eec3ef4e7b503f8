#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "base/keldassert.h"
#include "base/keldmemory.h"

namespace KELD {

// What the 8-bit and the wide text do alike with the standard string that each of them holds.

inline int ToIndex(std::size_t position) {
    return position == std::string::npos ? -1 : static_cast<int>(position);
}

template <class Char>
constexpr Char ToUpper(Char c) {
    return c >= 'a' && c <= 'z' ? static_cast<Char>(c - 'a' + 'A') : c;
}
template <class Char>
constexpr Char ToLower(Char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<Char>(c - 'A' + 'a') : c;
}

/// The number of units replaced.
template <class Char>
int ReplaceUnits(std::basic_string<Char>& text, Char from, Char to) {
    if (from == to)
        return 0;
    int replaced = 0;
    for (Char& unit : text) {
        if (unit == from) {
            unit = to;
            ++replaced;
        }
    }
    return replaced;
}

/// The number of replacements; none of them when the text would grow past `maxLength` or finds no memory.
template <class Char>
int ReplaceParts(std::basic_string<Char>& text, std::basic_string_view<Char> from, std::basic_string_view<Char> to,
                 std::size_t maxLength) {
    if (from.empty())
        return 0;
    // Built beside the old text, so that many replacements cost one pass and not one move of the tail each.
    std::basic_string<Char> result;
    int replaced = 0;
    const bool done = TryMemory([&] {
        std::size_t copied = 0;
        for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at = copied) {
            if (!KELDASSERT(result.size() + (text.size() - copied) - from.size() + to.size() <= maxLength)) {
                replaced = 0;
                return;
            }
            result.append(text, copied, at - copied).append(to);
            copied = at + from.size();
            ++replaced;
        }
        if (replaced != 0)
            result.append(text, copied, std::string::npos);
    });
    if (!done)
        return 0;
    if (replaced != 0)
        text = std::move(result);
    return replaced;
}

} // namespace KELD
