#include "toolkit/xml/markuptext.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <thread>
#include <utility>

#include "base/keldmemory.h"
#include "platform/thread.h"

namespace Qzc {

namespace {

// An edit this near before the gap is made where it is: moving so few bytes costs less than moving the gap there
// and back, as building a document child by child would do.
constexpr int NearGap = 256;

// A buffer behind the gap that is larger is given back when it is empty.
constexpr int SmallTail = 1 << 16;

int Grown(int size) {
    return size < KeldMBString::MaxLength - size / 2 ? size + size / 2 : KeldMBString::MaxLength;
}

} // namespace

const KeldMBString& MarkupText::Whole() const {
    if (m_tailLength == 0 || m_joined.load(std::memory_order_acquire) == Joined::Yes)
        return m_text;
    {
        // A thread that ended here would leave the others waiting.
        const Platform::TerminationShield shield;
        Joined expected = Joined::No;
        if (m_joined.compare_exchange_strong(expected, Joined::Joining, std::memory_order_acquire)) {
            m_text.Append(Tail());
            m_joined.store(Joined::Yes, std::memory_order_release);
        }
    }
    while (m_joined.load(std::memory_order_acquire) != Joined::Yes)
        std::this_thread::yield();
    return m_text;
}

void MarkupText::Swap(MarkupText& other) noexcept {
    Part();
    other.Part();
    std::swap(m_text, other.m_text);
    std::swap(m_front, other.m_front);
    std::swap(m_length, other.m_length);
    std::swap(m_tailBytes, other.m_tailBytes);
    std::swap(m_tailRoom, other.m_tailRoom);
    std::swap(m_tail, other.m_tail);
    std::swap(m_tailLength, other.m_tailLength);
    std::swap(m_room, other.m_room);
    Changed();
    other.Changed();
}

void MarkupText::Set(KeldMBString text) {
    m_text = std::move(text);
    DropTail();
    m_front = m_length = m_room = m_text.GetLength();
    Changed();
}

bool MarkupText::Set(std::string_view text) {
    m_text.Replace(0, m_text.GetLength(), text);
    if (m_text.View().size() != text.size())
        return false;
    DropTail();
    m_front = m_length = m_room = m_text.GetLength();
    Changed();
    return true;
}

bool MarkupText::Splice(int offset, int count, std::string_view insert) {
    const int left = Cut(offset);
    const int right = std::max(left, Cut(left + std::min(count, m_length - left)));
    const int kept = m_length - (right - left);
    if (insert.size() > static_cast<std::size_t>(KeldMBString::MaxLength - kept))
        return false;
    const int inserted = static_cast<int>(insert.size());
    if (!MakeRoomInText(std::max(kept + inserted, m_length)))
        return false;
    Part();
    if ((m_front - right > NearGap && !MoveGap(right)) || (left > m_front && !MoveGap(left)))
        return false;
    const int cut = std::min(right, m_front) - left; // the rest is behind the gap
    if (right > m_front) {
        m_tail += right - m_front;
        m_tailLength -= right - m_front;
    }
    if (cut != 0 || left != m_text.GetLength())
        m_text.Replace(left, cut, insert);
    else if (inserted != 0)
        m_text.Append(insert);
    m_front += inserted - cut;
    m_length = kept + inserted;
    Changed();
    return true;
}

std::string_view MarkupText::RangeBesideGap(int left, int right) const {
    left = Cut(left);
    right = Cut(right);
    const char* const start = left < m_front && m_front < right ? Whole().Cstr() + left : At(left);
    return std::string_view(start, static_cast<std::size_t>(std::max(right - left, 0)));
}

KeldMBString MarkupText::Copy(int left, int right) const {
    left = Cut(left);
    right = Cut(right);
    if (left >= m_front || right <= m_front)
        return KeldMBString(Range(left, right));
    KeldMBString copy;
    copy.Reserve(right - left);
    copy.Append(Range(left, m_front));
    return copy.Append(Range(m_front, right));
}

void MarkupText::CountLines(int offset, int& lines, int& lineStart) const {
    offset = Cut(offset);
    lines = 0;
    lineStart = 0;
    const auto count = [&](std::string_view piece, int start) {
        for (std::size_t at = 0; (at = piece.find('\n', at)) != std::string_view::npos;) {
            ++at;
            ++lines;
            lineStart = start + static_cast<int>(at);
        }
    };
    count(Range(0, std::min(offset, m_front)), 0);
    if (offset > m_front)
        count(Range(m_front, offset), m_front);
}

void MarkupText::Close() {
    if (m_joined.load(std::memory_order_relaxed) == Joined::Yes)
        DropTail();
    else
        MoveGap(m_length);
    m_front = m_length;
}

void MarkupText::Part() {
    if (m_joined.load(std::memory_order_relaxed) == Joined::No)
        return;
    m_text.Delete(m_front, m_tailLength);
    m_joined.store(Joined::No, std::memory_order_relaxed);
}

bool MarkupText::MoveGap(int offset) {
    if (offset == m_front)
        return true;
    Part();
    if (offset < m_front) {
        const int count = m_front - offset;
        if (!MakeRoomInTail(count))
            return false;
        char* const tail = m_tailBytes.get() + (m_tailRoom - m_tailLength - count);
        std::memcpy(tail, m_text.Cstr() + offset, static_cast<std::size_t>(count));
        m_tail = tail;
        m_tailLength += count;
        m_text.Delete(offset, count);
        m_front = offset;
        return true;
    }
    const int count = offset - m_front;
    m_text.Append(Tail().substr(0, static_cast<std::size_t>(count)));
    m_tail += count;
    m_tailLength -= count;
    m_front = offset;
    if (m_tailLength == 0 && m_tailRoom > SmallTail)
        DropTail();
    return true;
}

bool MarkupText::MakeRoomInTail(int count) {
    const int needed = m_tailLength + count; // the text is no longer than a string, and so is a part of it
    if (needed <= m_tailRoom)
        return true;
    const int room = std::max(Grown(needed), 64);
    std::unique_ptr<char[]> bytes(new (std::nothrow) char[static_cast<std::size_t>(room) + 1]);
    if (bytes == nullptr) {
        ReportMemoryFailure();
        return false;
    }
    char* const tail = bytes.get() + (room - m_tailLength);
    std::memcpy(tail, m_tail, static_cast<std::size_t>(m_tailLength));
    bytes[static_cast<std::size_t>(room)] = '\0';
    m_tailBytes = std::move(bytes);
    m_tailRoom = room;
    m_tail = tail;
    return true;
}

bool MarkupText::MakeRoomInText(int length) {
    if (length <= m_room)
        return true;
    const unsigned int failures = GetMemoryFailures();
    // Room that is not used is not touched, so that much of it costs less than moving the text often.
    const int factor = length <= 1 << 22 ? 4 : 2;
    const int room = length <= KeldMBString::MaxLength / factor ? factor * length : KeldMBString::MaxLength;
    m_text.Reserve(room);
    if (GetMemoryFailures() != failures)
        return false;
    m_room = room;
    return true;
}

void MarkupText::DropTail() {
    m_tailBytes.reset();
    m_tailRoom = 0;
    m_tail = "";
    m_tailLength = 0;
    m_joined.store(Joined::No, std::memory_order_relaxed);
}

} // namespace Qzc
