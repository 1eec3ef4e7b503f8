#pragma once

#include "toolkit/qzmarkup.h"
#include "toolkit/xml/markuptext.h"

namespace Qzc {

// What nearly every operation asks, for the sources of this room.

inline int QzMarkup::FromStart(int offset) const {
    return offset < 0 ? offset + m_text->GetLength() : offset;
}

inline QzMarkup::Tag QzMarkup::TagBehindElement(int iPos) const {
    const ElementPos& pos = Pos(iPos);
    return pos.iElemNext != 0 ? Tag{pos.iElemNext, false} : Tag{pos.iElemParent, true};
}

inline QzMarkup::Tag QzMarkup::TagBehind(Tag tag) const {
    if (tag.isEnd || IsEmptyElement(tag.iPos))
        return TagBehindElement(tag.iPos);
    const int iChild = Pos(tag.iPos).iElemChild;
    return iChild != 0 ? Tag{iChild, false} : Tag{tag.iPos, true};
}

inline int QzMarkup::TagOffset(Tag tag) const {
    if (tag.iPos == 0)
        return m_text->GetLength();
    return tag.isEnd ? EndL(tag.iPos) : StartL(tag.iPos);
}

} // namespace Qzc
