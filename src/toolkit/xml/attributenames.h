#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

#include "toolkit/qzmarkup.h"

namespace Qzc {

/// Setting attributes of one element by the thousand would look through all of them for each: the hash codes of
/// their names, and where the last one was found, are kept from one call to the next, as long as nothing else changes
/// the text.
struct QzMarkup::AttributeNames {
    int iPos = 0;
    std::uint64_t nChanges = 0; ///< those of the text when the names were complete
    int nNext = 0;              ///< behind the attribute set last, from the start of the tag; 0 for none

    /// False when the name, or another one of its hash code, is there already.
    bool Add(std::string_view name) {
        if (2 * m_count >= m_codes.size())
            Grow();
        const bool isNew = Insert(m_codes, static_cast<std::uint32_t>(std::hash<std::string_view>()(name)) | 1U);
        m_count += isNew ? 1U : 0U;
        return isNew;
    }
    /// Adds one that stands in the tag; the same name may stand there twice.
    void AddKnown(std::string_view name) { m_hasTwins = !Add(name) || m_hasTwins; }
    bool HasTwins() const { return m_hasTwins; }

private:
    using Codes = std::vector<std::uint32_t>; // a power of two of them, 0 for a free place

    static bool Insert(Codes& codes, std::uint32_t code) {
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
        for (const std::uint32_t code : m_codes) {
            if (code != 0)
                Insert(larger, code);
        }
        m_codes = std::move(larger);
    }

    Codes m_codes;
    std::size_t m_count = 0;
    bool m_hasTwins = false;
};

} // namespace Qzc
