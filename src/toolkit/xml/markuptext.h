#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/xml/attributememo.h"

namespace Qzc {

/// The text of a document, with a gap where it was edited last: an edit moves only the bytes between the last
/// one and itself. Offsets count the bytes of the text and know of no gap. All of them are cut to the text.
///
/// The bytes before the gap are the start of a KeldMBString, those behind it lie in a buffer of their own. The
/// string has room for all of them, so that closing the gap for a reader only appends to it: what other readers
/// see of either side stays where it is. That makes the const operations safe from many threads.
class MarkupText {
public:
    MarkupText() = default;
    MarkupText(const MarkupText& other) ///< empty when there is no memory for it
        : m_text(other.Whole()), m_front(m_text.GetLength()), m_length(m_front), m_room(m_front) {}
    MarkupText& operator=(const MarkupText&) = delete;

    int GetLength() const { return m_length; }
    const KeldMBString& Whole() const; ///< without a gap; the same object all the time
    void Swap(MarkupText& other) noexcept;
    void Set(KeldMBString text);
    bool Set(std::string_view text); ///< may be a part of Whole(). False when there is no memory for it

    /// Puts `insert`, which is no part of the text, in place of `count` bytes. False when the text would grow
    /// beyond what a string holds.
    bool Splice(int offset, int count, std::string_view insert);

    /// Takes the gap, when it is inside a range that is about to be read, to the nearer end of the range.
    void KeepWhole(int left, int right) {
        left = Cut(left);
        right = Cut(right);
        if (left < m_front && m_front < right)
            MoveGap(m_front - left < right - m_front ? left : right);
    }
    void Close(); ///< ends the gap

    int Cut(int offset) const { return offset < 0 ? 0 : offset > m_length ? m_length : offset; }

    /// From `left` to before `right`, in one piece. Behind it more of the text follows, and somewhere a
    /// terminator.
    std::string_view Range(int left, int right) const {
        if (m_tailLength == 0 && 0 <= left && left <= right && right <= m_length) // as nearly always
            return std::string_view(m_text.Cstr() + left, static_cast<std::size_t>(right - left));
        return RangeBesideGap(left, right);
    }
    /// The same with the end of what may be read from there on.
    struct Piece {
        const char* start;
        const char* readable;
    };
    Piece From(int left, int right) const {
        if (m_tailLength == 0 && 0 <= left && left <= m_length)
            return {m_text.Cstr() + left, m_text.Cstr() + m_length};
        return {RangeBesideGap(left, right).data(), PieceEnd(left)};
    }
    const char* At(int offset) const {
        offset = Cut(offset);
        return offset < m_front || m_tailLength == 0 ? m_text.Cstr() + offset : m_tail + (offset - m_front);
    }
    /// The end of the piece that `offset` lies in.
    const char* PieceEnd(int offset) const {
        return Cut(offset) < m_front || m_tailLength == 0 ? m_text.Cstr() + m_front : m_tail + m_tailLength;
    }
    KeldMBString Copy(int left, int right) const; ///< from `left` to before `right`

    /// The number of line feeds before an offset, and the offset behind the last of them.
    void CountLines(int offset, int& lines, int& lineStart) const;

    std::uint64_t Changes() const { return m_changes; } ///< another number after every change
    AttributeMemo& Memo() const { return m_memo; }      ///< of the text as it stands

private:
    enum class Joined { No, Joining, Yes }; ///< whether the string has the bytes behind the gap, too

    void Changed() {
        ++m_changes;
        m_memo.Forget();
    }
    std::string_view RangeBesideGap(int left, int right) const;
    void Part();              ///< takes the bytes behind the gap from the string again
    bool MoveGap(int offset); ///< false, and it stays, when there is no memory
    bool MakeRoomInTail(int count);
    bool MakeRoomInText(int length);
    void DropTail();
    std::string_view Front() const { return std::string_view(m_text.Cstr(), static_cast<std::size_t>(m_front)); }
    std::string_view Tail() const { return std::string_view(m_tail, static_cast<std::size_t>(m_tailLength)); }

    mutable KeldMBString m_text;
    int m_front = 0; ///< bytes before the gap
    int m_length = 0;
    int m_room = 0;                      ///< the string holds as many bytes without moving; never less than m_length
    std::unique_ptr<char[]> m_tailBytes; ///< right-aligned, then a terminator
    int m_tailRoom = 0;
    const char* m_tail = "";
    int m_tailLength = 0;
    std::uint64_t m_changes = 0;
    mutable std::atomic<Joined> m_joined{Joined::No};
    mutable AttributeMemo m_memo;
};

} // namespace Qzc
