// QzMarkup's records: where they are kept, and how their offsets follow an edit.
//
// All tags before m_fromEnd have their offsets told from the start of the text, all others from its end. An edit
// takes that border to itself, in two steps: DocChange passes what it has left behind, Adjust what it goes back
// over. Either way only the tags between the last edit and this one are touched.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include "base/keldmemory.h"
#include "toolkit/qzmarkup.h"
#include "toolkit/xml/qzmarkupinline.h"

namespace Qzc {

QzMarkup::ElementPos QzMarkup::GetElementPos(int i) const {
    ElementPos pos = Pos(i);
    for (int* const offset : {&pos.nStartL, &pos.nStartR, &pos.nEndL, &pos.nEndR})
        *offset = FromStart(*offset);
    return pos;
}

template <class Move>
void QzMarkup::MoveTag(Tag tag, Move move) {
    ElementPos& pos = Pos(tag.iPos);
    const bool empty = IsEmptyElement(tag.iPos);
    if (!tag.isEnd) {
        pos.nStartL = move(pos.nStartL);
        pos.nStartR = move(pos.nStartR);
    }
    if (tag.isEnd || empty) {
        pos.nEndL = move(pos.nEndL);
        pos.nEndR = move(pos.nEndR);
    }
}

void QzMarkup::TellFromStart(int nBefore) {
    for (; m_fromEnd.iPos != 0; m_fromEnd = TagBehind(m_fromEnd)) {
        if (TagOffset(m_fromEnd) >= nBefore)
            return;
        MoveTag(m_fromEnd, [this](int offset) { return FromStart(offset); });
    }
}

void QzMarkup::TellFromEnd(Tag first, int nShift) {
    const int length = m_text->GetLength();
    for (Tag tag = first; tag.iPos != 0; tag = TagBehind(tag)) {
        const ElementPos& pos = Pos(tag.iPos);
        if ((tag.isEnd ? pos.nEndL : pos.nStartL) < 0)
            break;
        MoveTag(tag, [=](int offset) {
            return offset < 0 ? offset : static_cast<int>(std::int64_t{offset} - length + nShift);
        });
    }
    m_fromEnd = first;
}

void QzMarkup::Adjust(int iPos, int nShift, unsigned char bAfterPos) {
    TellFromEnd(bAfterPos ? TagBehindElement(iPos) : Tag{iPos, false}, nShift);
}

bool QzMarkup::Splice(int nLeft, int nReplace, std::string_view insert) {
    // Behind Save the records may ask for any number of bytes.
    const std::int64_t kept = std::int64_t{m_text->GetLength()} - nReplace;
    if (kept + static_cast<std::int64_t>(insert.size()) > KeldMBString::MaxLength)
        return false;
    TellFromStart(nLeft);
    return m_text->Splice(nLeft, nReplace, insert);
}

unsigned char QzMarkup::DocChange(int nLeft, int nReplace, const KeldMBString& strInsert) {
    return Splice(nLeft, nReplace, strInsert.View()) ? 1 : 0;
}

void QzMarkup::SetText(KeldMBString text) {
    TellFromStart(KeldMBString::MaxLength);
    m_text->Set(std::move(text));
}

// ---- The sibling before

int QzMarkup::PreviousSibling(int iPos) {
    const int iFirst = Pos(Pos(iPos).iElemParent).iElemChild;
    if (iFirst == iPos)
        return 0;
    const auto index = static_cast<std::size_t>(iPos);
    const int iNoted = index < m_previous.size() ? m_previous[index] : 0;
    if (iNoted != 0 && Pos(iNoted).iElemNext == iPos && !IsReleased(iNoted))
        return iNoted;
    // Whoever asks once will ask for the others, too.
    const bool notes = TryMemory([this] { m_previous.resize(static_cast<std::size_t>(m_iPosFree)); });
    int iFound = 0;
    int iPrevious = 0;
    for (int i = iFirst; i != 0; i = Pos(i).iElemNext) {
        if (i == iPos)
            iFound = iPrevious;
        if (notes)
            m_previous[static_cast<std::size_t>(i)] = iPrevious;
        iPrevious = i;
    }
    return iFound;
}

void QzMarkup::SetPrevious(int iPos, int iPrevious) {
    if (iPos == 0 || m_previous.empty())
        return;
    const auto index = static_cast<std::size_t>(iPos);
    if (index < m_previous.size() || TryMemory([this] { m_previous.resize(static_cast<std::size_t>(m_iPosFree)); }))
        m_previous[index] = iPrevious;
}

// ---- Keeping them

bool QzMarkup::AllocPosArray(int nNewSize) {
    // The last segment first, when it is not full.
    const int first = m_nPosCapacity & ~(SegmentSize - 1);
    if (first < m_nPosCapacity && nNewSize > m_nPosCapacity && !AllocSegment(first, nNewSize))
        return false;
    return nNewSize <= m_nPosCapacity || AllocSegment(m_nPosCapacity, nNewSize);
}

// The segment from record `nFirst` on, as far as it is wanted: a new one, or the last one grown.
bool QzMarkup::AllocSegment(int nFirst, int nNewSize) {
    const int size = std::min(nNewSize - nFirst, SegmentSize);
    const bool isNew = nFirst == m_nPosCapacity;
    if (isNew)
        m_segments.emplace_back();
    Segment& last = m_segments.back();
    void* const grown = std::realloc(last.get(), static_cast<std::size_t>(size) * sizeof(ElementPos));
    if (grown == nullptr) {
        if (isNew)
            m_segments.pop_back();
        return false;
    }
    static_cast<void>(last.release());
    last.reset(static_cast<ElementPos*>(grown));
    m_nPosCapacity = nFirst + size;
    if (nFirst == 0 && isNew)
        Pos(0) = ElementPos{};
    return true;
}

int QzMarkup::GetFreePos() {
    if (m_iPosReleased != 0) {
        const int iPos = m_iPosReleased;
        m_iPosReleased = Pos(iPos).iElemNext;
        return iPos;
    }
    if (m_iPosFree >= m_nPosCapacity && !AllocPosArray(std::max(m_nPosCapacity + m_nPosCapacity / 2, 8)))
        return 0;
    Pos(m_iPosFree) = ElementPos{}; // only now: clearing all the memory at once would cost a pass over it
    return m_iPosFree++;
}

void QzMarkup::ReleasePos(int iFirst) {
    ++m_nReleases;
    // The chain of what is still to be released grows in front by each record's children, so no depth costs
    // stack.
    while (iFirst != 0) {
        ElementPos& pos = Pos(iFirst);
        const int iReleased = iFirst;
        iFirst = pos.iElemNext;
        if (pos.iElemChild != 0) {
            Pos(pos.iElemLast).iElemNext = iFirst;
            iFirst = pos.iElemChild;
        }
        pos.iElemParent = -1;
        pos.iElemNext = m_iPosReleased;
        m_iPosReleased = iReleased;
        if (!m_mapSavedPos.IsEmpty()) {
            const auto index = static_cast<std::size_t>(iReleased);
            if (index < m_releasedAt.size() ||
                TryMemory([this] { m_releasedAt.resize(static_cast<std::size_t>(m_iPosFree)); }))
                m_releasedAt[index] = m_nReleases;
            else
                m_mapSavedPos.RemoveAll();
        }
    }
}

void QzMarkup::PosInsert(const Fragment& fragment, int iPosParent, int iPosBefore) {
    ElementPos& parent = Pos(iPosParent);
    int& link = iPosBefore != 0 ? Pos(iPosBefore).iElemNext : parent.iElemChild;
    Pos(fragment.iLast).iElemNext = link;
    if (link == 0)
        parent.iElemLast = fragment.iLast;
    link = fragment.iFirst;
    if (m_previous.empty())
        return;
    int iPrevious = iPosBefore;
    for (int i = fragment.iFirst; i != Pos(fragment.iLast).iElemNext; i = Pos(i).iElemNext)
        SetPrevious(i, std::exchange(iPrevious, i));
    SetPrevious(Pos(fragment.iLast).iElemNext, fragment.iLast);
}

void QzMarkup::SetPos(int iPosParent, int iPos, int iPosChild) {
    m_iPosParent = iPosParent;
    m_iPos = iPos;
    m_iPosChild = iPosChild;
    m_nNodeType = iPos != 0 ? NodeElement : 0;
}

} // namespace Qzc
