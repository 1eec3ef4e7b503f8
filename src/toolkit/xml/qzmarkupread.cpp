// QzMarkup's reading: names, values and texts cut out of the document when they are asked for.

#include <cstring>

#include "base/keldthreadobject.h"
#include "toolkit/qzmarkup.h"
#include "toolkit/xml/qzmarkupinline.h"
#include "toolkit/xml/qzmarkupscan.h"
#include "toolkit/xml/xmltext.h"

namespace Qzc {

using namespace MarkupScan;

namespace {

std::string_view View(const char* text) {
    return text != nullptr ? text : std::string_view();
}

class Scratch;

/// A view of what is not in the document as it stands: a string of the thread's own. Empty without memory.
template <class Fill>
std::string_view ScratchView(Fill fill) {
    auto* const scratch = GetThreadObject<std::string, Scratch>();
    if (scratch == nullptr)
        return std::string_view();
    scratch->clear();
    return TryMemory([&] { fill(*scratch); }) ? std::string_view(*scratch) : std::string_view();
}

// Own text goes to a string without a detour, so that it is allocated once.
KeldMBString Resolved(std::string_view text) {
    return FindReference(text) == text.size() ? KeldMBString(text) : Unescaped(text);
}

std::string_view ResolvedView(std::string_view text) {
    if (FindReference(text) == text.size())
        return text;
    return ScratchView([&](std::string& scratch) { AppendUnescaped(scratch, text); });
}

} // namespace

KeldMBString QzMarkup::GetTagName() const {
    return GetTagName(m_iPos);
}

KeldMBString QzMarkup::GetChildTagName() const {
    return GetTagName(m_iPosChild);
}

std::string_view QzMarkup::GetTagNameView() const {
    return TagName(m_iPos);
}

std::string_view QzMarkup::GetChildTagNameView() const {
    return TagName(m_iPosChild);
}

KeldMBString QzMarkup::GetData() const {
    return GetData(m_iPos);
}

KeldMBString QzMarkup::GetChildData() const {
    return GetData(m_iPosChild);
}

std::string_view QzMarkup::GetDataView() const {
    return DataView(m_iPos);
}

std::string_view QzMarkup::GetChildDataView() const {
    return DataView(m_iPosChild);
}

KeldMBString QzMarkup::GetAttrib(const char* szAttrib) const {
    return GetAttrib(m_iPos, szAttrib);
}

KeldMBString QzMarkup::GetChildAttrib(const char* szAttrib) const {
    return GetAttrib(m_iPosChild, szAttrib);
}

KeldMBString QzMarkup::GetAttribName(int n) const {
    return AttributeAt(m_iPos, n).GetName();
}

KeldMBString QzMarkup::GetChildAttribName(int n) const {
    return AttributeAt(m_iPosChild, n).GetName();
}

KeldMBString QzMarkup::GetAttribValue(int n) const {
    return AttributeAt(m_iPos, n).GetValue();
}

KeldMBString QzMarkup::GetChildAttribValue(int n) const {
    return AttributeAt(m_iPosChild, n).GetValue();
}

std::string_view QzMarkup::GetAttribNameView(int n) const {
    return AttributeAt(m_iPos, n).GetNameView();
}

std::string_view QzMarkup::GetChildAttribNameView(int n) const {
    return AttributeAt(m_iPosChild, n).GetNameView();
}

std::string_view QzMarkup::GetAttribValueView(int n) const {
    return AttributeAt(m_iPos, n).GetValueView();
}

std::string_view QzMarkup::GetChildAttribValueView(int n) const {
    return AttributeAt(m_iPosChild, n).GetValueView();
}

int QzMarkup::GetAttribCount() const {
    return AttribCount(m_iPos);
}

int QzMarkup::GetChildAttribCount() const {
    return AttribCount(m_iPosChild);
}

KeldMBString QzMarkup::GetSubDoc() const {
    return GetSubDoc(m_iPos);
}

KeldMBString QzMarkup::GetChildSubDoc() const {
    return GetSubDoc(m_iPosChild);
}

unsigned char QzMarkup::GetElemPosition(int& line, int& column) const {
    return GetPosition(m_iPos != 0 ? StartL(m_iPos) : -1, line, column);
}

unsigned char QzMarkup::GetChildElemPosition(int& line, int& column) const {
    return GetPosition(m_iPosChild != 0 ? StartL(m_iPosChild) : -1, line, column);
}

unsigned char QzMarkup::GetErrorPosition(int& line, int& column) const {
    return GetPosition(IsWellFormed() ? -1 : m_nErrorAt, line, column);
}

unsigned char QzMarkup::GetPosition(int nOffset, int& line, int& column) const {
    if (nOffset < 0)
        return 0;
    int lines = 0;
    int lineStart = 0;
    m_text->CountLines(nOffset, lines, lineStart);
    line = lines + 1;
    column = nOffset - lineStart + 1;
    return 1;
}

// ---- Ranges

QzMarkup::Element QzMarkup::TopElement() const {
    return Element(this, IsWellFormed() ? Pos(0).iElemChild : 0);
}

QzMarkup::AttributeRange QzMarkup::Attributes() const {
    return AttributesOf(m_iPos);
}

QzMarkup::AttributeRange QzMarkup::ChildAttributes() const {
    return AttributesOf(m_iPosChild);
}

std::string_view QzMarkup::Element::GetTagNameView() const {
    return m_iPos != 0 ? m_markup->TagName(m_iPos) : std::string_view();
}

std::string_view QzMarkup::Element::GetDataView() const {
    return m_iPos != 0 ? m_markup->DataView(m_iPos) : std::string_view();
}

KeldMBString QzMarkup::Element::GetTagName() const {
    return m_iPos != 0 ? m_markup->GetTagName(m_iPos) : KeldMBString();
}

KeldMBString QzMarkup::Element::GetData() const {
    return m_iPos != 0 ? m_markup->GetData(m_iPos) : KeldMBString();
}

KeldMBString QzMarkup::Element::GetAttrib(const char* szAttrib) const {
    return m_iPos != 0 ? m_markup->GetAttrib(m_iPos, szAttrib) : KeldMBString();
}

KeldMBString QzMarkup::Element::GetSubDoc() const {
    return m_iPos != 0 ? m_markup->GetSubDoc(m_iPos) : KeldMBString();
}

QzMarkup::AttributeRange QzMarkup::Element::Attributes() const {
    return m_iPos != 0 ? m_markup->AttributesOf(m_iPos) : AttributeRange();
}

std::string_view QzMarkup::Attribute::GetResolvedView() const {
    return ResolvedView(m_found.value);
}

KeldMBString QzMarkup::Attribute::GetResolved() const {
    return Resolved(m_found.value);
}

QzMarkup::AttributeRange::Iterator QzMarkup::AttributeRange::begin() const {
    Iterator first;
    if (m_inside != nullptr) {
        first.m_scan.next = m_inside;
        first.m_scan.readable = first.m_attribute.m_found.readable = m_readable;
        ++first;
    }
    return first;
}

QzMarkup::AttributeRange::Iterator& QzMarkup::AttributeRange::Iterator::operator++() {
    if (!NextAttribute(m_scan, m_attribute.m_found))
        m_scan.next = nullptr;
    return *this;
}

// ---- By record

std::string_view QzMarkup::TagName(int iPos, const char*& readable) const {
    if (iPos == 0)
        return std::string_view();
    const MarkupText::Piece tag = m_text->From(StartL(iPos) + 1, StartR(iPos));
    readable = tag.readable;
    const char* const start = SkipBlanks(tag.start);
    const char* const end = SkipName(start, readable);
    return std::string_view(start, static_cast<std::size_t>(end - start));
}

std::string_view QzMarkup::TagName(int iPos) const {
    const char* readable = nullptr;
    return TagName(iPos, readable);
}

KeldMBString QzMarkup::GetTagName(int iPos) const {
    const char* readable = nullptr;
    const std::string_view name = TagName(iPos, readable);
    return KeldMBString::FromPart(name, readable);
}

KeldMBString QzMarkup::GetData(int iPos) const {
    std::string_view text;
    if (PlainData(iPos, text))
        return KeldMBString::FromPart(text, text.empty() ? text.data() : m_text->PieceEnd(StartR(iPos) + 1));
    std::string data;
    return TryMemory([&] { AppendData(data, iPos); }) ? KeldMBString(std::move(data)) : KeldMBString();
}

std::string_view QzMarkup::DataView(int iPos) const {
    std::string_view text;
    if (PlainData(iPos, text))
        return text;
    return ScratchView([&](std::string& scratch) { AppendData(scratch, iPos); });
}

// Most elements have one piece of text without a reference.
bool QzMarkup::PlainData(int iPos, std::string_view& text) const {
    if (iPos == 0 || IsEmptyElement(iPos))
        return true;
    if (Pos(iPos).iElemChild != 0)
        return false;
    text = m_text->Range(StartR(iPos) + 1, EndL(iPos));
    return FindMarkup(text) == text.size();
}

void QzMarkup::AppendData(std::string& data, int iPos) const {
    int nNext = StartR(iPos) + 1;
    for (int iChild = Pos(iPos).iElemChild; iChild != 0; iChild = Pos(iChild).iElemNext) {
        AppendContent(data, m_text->Range(nNext, StartL(iChild)));
        nNext = EndR(iChild) + 1;
    }
    AppendContent(data, m_text->Range(nNext, EndL(iPos)));
}

KeldMBString QzMarkup::GetSubDoc(int iPos) const {
    return iPos != 0 ? m_text->Copy(StartL(iPos), EndR(iPos) + 1) : KeldMBString();
}

KeldMBString QzMarkup::GetAttrib(int iPos, const char* szAttrib) const {
    const std::string_view name = View(szAttrib);
    for (const Attribute& attribute : AttributesOf(iPos)) {
        if (attribute.GetNameView() == name)
            return attribute.GetValue();
    }
    return KeldMBString();
}

QzMarkup::AttributeRange QzMarkup::AttributesOf(int iPos) const {
    AttributeRange range;
    if (iPos != 0) {
        const std::string_view name = TagName(iPos, range.m_readable);
        range.m_inside = name.data() + name.size();
    }
    return range;
}

// Whoever asks for one by its number has nearly always asked for the number of all, so that its place is noted.
[[gnu::always_inline]] inline QzMarkup::Attribute QzMarkup::AttributeAt(int iPos, int n) const {
    Attribute attribute;
    if (iPos == 0 || n < 0)
        return attribute;
    AttributeMemo::Place place; // NOLINT(cppcoreguidelines-pro-type-member-init): of no use unless it is found
    if (!m_text->Memo().Lookup({StartL(iPos), StartR(iPos)}, n, place))
        return FindAttribute(iPos, n);
    const MarkupText::Piece piece = m_text->From(place.name, place.value + place.valueLength);
    attribute.m_found.name = std::string_view(piece.start, static_cast<std::size_t>(place.nameLength));
    attribute.m_found.value =
        std::string_view(piece.start + (place.value - place.name), static_cast<std::size_t>(place.valueLength));
    attribute.m_found.readable = piece.readable;
    attribute.m_found.isPlain = place.isPlain;
    return attribute;
}

QzMarkup::Attribute QzMarkup::FindAttribute(int iPos, int n) const {
    AttributeMemo& memo = m_text->Memo();
    const AttributeMemo::Tag tag{StartL(iPos), StartR(iPos)};
    const char* const start = m_text->Range(tag.left, tag.right + 1).data();
    AttributeRange range = AttributesOf(iPos);
    int number = 0;
    int offset = 0;
    if (memo.LookupLast(tag, n, number, offset))
        range.m_inside = start + (offset - tag.left);
    else
        number = 0;
    for (const Attribute& found : range) {
        if (number++ < n)
            continue;
        const auto offsetOf = [&](std::string_view text) { return tag.left + static_cast<int>(text.data() - start); };
        memo.SetPlace(n, {offsetOf(found.m_found.name), static_cast<int>(found.m_found.name.size()),
                          offsetOf(found.m_found.value), static_cast<int>(found.m_found.value.size()),
                          found.m_found.isPlain});
        return found;
    }
    return Attribute();
}

int QzMarkup::AttribCount(int iPos) const {
    if (iPos == 0)
        return 0;
    AttributeMemo& memo = m_text->Memo();
    const AttributeMemo::Tag tag{StartL(iPos), StartR(iPos)};
    int count = 0;
    if (memo.LookupTotal(tag, count))
        return count;
    const char* const start = m_text->Range(tag.left, tag.right + 1).data();
    const auto offsetOf = [&](std::string_view text) { return tag.left + static_cast<int>(text.data() - start); };
    const AttributeRange range = AttributesOf(iPos);
    TagScan scan;
    scan.next = range.m_inside;
    scan.readable = range.m_readable;
    TagAttribute found;
    for (count = 0; NextAttribute(scan, found); ++count) {
        if (count < AttributeMemo::Count)
            memo.SetPlace(count, {offsetOf(found.name), static_cast<int>(found.name.size()), offsetOf(found.value),
                                  static_cast<int>(found.value.size()), found.isPlain});
    }
    memo.SetTotal(tag, count);
    return count;
}

KeldMBString QzMarkup::TextFromDoc(int nLeft, int nRight) const {
    return Resolved(m_text->Range(nLeft, nRight < KeldMBString::MaxLength ? nRight + 1 : nRight));
}

} // namespace Qzc
