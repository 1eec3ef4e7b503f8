#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/asciicase.h"

namespace KELD {

/// Whether a text starts with another, in any case of ASCII's letters.
inline bool StartsWithAnyCase(std::string_view text, std::string_view start) {
    const auto lower = [](char c) { return ToLowerAscii(static_cast<unsigned char>(c)); };
    return text.size() >= start.size() &&
           std::equal(start.begin(), start.end(), text.begin(), [&](char a, char b) { return lower(a) == lower(b); });
}

/// Takes a number of at most so many digits, which are no more than 18, off the start of the text. False, and nothing
/// is changed, when none stands there.
inline bool TakeDigits(std::string_view& text, int digits, std::int64_t& value) {
    const std::size_t limit = std::min(text.size(), static_cast<std::size_t>(digits));
    std::size_t end = 0;
    std::int64_t number = 0;
    for (; end < limit && text[end] >= '0' && text[end] <= '9'; ++end)
        number = number * 10 + (text[end] - '0');
    if (end == 0)
        return false;
    text.remove_prefix(end);
    value = number;
    return true;
}

/// Takes the longest of some names that the text starts with, in any case. False, and nothing is changed, when none
/// does.
template <class Names>
bool TakeName(std::string_view& text, const Names& names, std::size_t& index) {
    std::size_t longest = 0;
    bool isFound = false;
    std::size_t i = 0;
    for (const std::string_view name : names) {
        if ((!isFound || name.size() > longest) && StartsWithAnyCase(text, name)) {
            index = i;
            longest = name.size();
            isFound = true;
        }
        ++i;
    }
    text.remove_prefix(longest);
    return isFound;
}

} // namespace KELD
