#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

#include "toolkit/qzmarkup.h"

namespace Qzc {

/// Adding attributes to one element by the thousand would look through all of them for each: the hash codes of
/// their names are kept from one call to the next, as long as nothing else changes the text.
struct QzMarkup::AttributeNames {
    int iPos = 0;
    std::uint64_t nChanges = 0; ///< those of the text when the names were complete

    /// False when the name, or another one of its hash code, is there already.
    bool Add(std::string_view name) {
        if (2 * m_count >= m_codes.size())
            Grow();
        return Insert(m_codes, std::hash<std::string_view>()(name) | 1U) && ++m_count != 0;
    }

private:
    using Codes = std::vector<std::size_t>; // a power of two of them, 0 for a free place

    static bool Insert(Codes& codes, std::size_t code) {
        std::size_t at = (code >> 1) & (codes.size() - 1);
        for (; codes[at] != 0; at = (at + 1) & (codes.size() - 1)) {
            if (codes[at] == code)
                return false;
        }
        codes[at] = code;
        return true;
    }
    void Grow() {
        Codes larger(m_codes.empty() ? 256 : 2 * m_codes.size());
        for (const std::size_t code : m_codes) {
            if (code != 0)
                Insert(larger, code);
        }
        m_codes = std::move(larger);
    }

    Codes m_codes;
    std::size_t m_count = 0;
};

} // namespace Qzc
