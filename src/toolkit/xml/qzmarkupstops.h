#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace Qzc::MarkupScan {

/// Finds what the parser cannot run over without a look: '<', '>', quotes and the terminator. They are listed for a
/// piece of the text in one go, with hardly a branch that depends on where they are; the runs between, which are most
/// of a document, cost nothing more.
class StopFinder {
public:
    using Offset = std::int32_t;

    /// In a zero-terminated text, from an offset on.
    StopFinder(const char* text, Offset length, Offset start) : m_text(text), m_length(length), m_listed(start) {}

    struct List {
        const Offset* first = nullptr;
        const Offset* end = nullptr;
    };

    /// Where the next of them stand, at least one; valid until the next call. There is no call behind the terminator.
    List ListNext();
    /// Leaves out what is before `offset` and not listed yet; it never goes back.
    void SkipTo(Offset offset) { m_listed = std::max(m_listed, offset); }

private:
    static constexpr std::size_t BlockSize = 64;
    static constexpr std::size_t MostBlocks = 64;
    using Masks = std::array<std::uint64_t, MostBlocks>; ///< a bit for each byte of a block

    Offset* ListBlocks(const char* text, std::size_t blocks);
    static void FindStops(const char* text, std::size_t blocks, Masks& masks);
    static void FindStopsWide(const char* text, std::size_t blocks, Masks& masks);
    static Offset* ListFound(const Masks& masks, std::size_t blocks, Offset offset, Offset* last);
    static Offset* ListFoundWide(const Masks& masks, std::size_t blocks, Offset offset, Offset* last);

    const char* m_text;
    Offset m_length;
    Offset m_listed;          // what is before it has been
    std::size_t m_blocks = 2; // of the next piece; few at first, for many texts are short, and so are their elements
    std::array<Offset, (MostBlocks + 1) * BlockSize> m_stops; // more than needed: see ListFoundWide
};

} // namespace Qzc::MarkupScan
