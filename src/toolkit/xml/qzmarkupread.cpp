// QzMarkup's reading: names, values and texts cut out of the document when they are asked for.

#include <cstring>

#include "base/keldmemory.h"
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

/// What views show that is not in the document as it stands.
std::string& ThreadScratch() {
    static thread_local std::string t_scratch;
    return t_scratch;
}

// Own text goes to a string without a detour, so that it is allocated once.
KeldMBString Resolved(std::string_view text) {
    return FindReference(text) == text.size() ? KeldMBString(text) : Unescaped(text);
}

std::string_view ResolvedView(std::string_view text) {
    if (FindReference(text) == text.size())
        return text;
    std::string& scratch = ThreadScratch();
    scratch.clear();
    return TryMemory([&] { AppendUnescaped(scratch, text); }) ? std::string_view(scratch) : std::string_view();
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
    return Data(m_iPos, ThreadScratch());
}

std::string_view QzMarkup::GetChildDataView() const {
    return Data(m_iPosChild, ThreadScratch());
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
    return m_iPos != 0 ? m_markup->Data(m_iPos, ThreadScratch()) : std::string_view();
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

std::string_view QzMarkup::Attribute::GetValueView() const {
    return ResolvedView(m_value);
}

KeldMBString QzMarkup::Attribute::GetValue() const {
    return Resolved(m_value);
}

QzMarkup::AttributeRange::Iterator QzMarkup::AttributeRange::begin() const {
    Iterator first;
    if (m_inside != nullptr) {
        first.m_next = m_inside;
        first.m_readable = m_readable;
        ++first;
    }
    return first;
}

QzMarkup::AttributeRange::Iterator& QzMarkup::AttributeRange::Iterator::operator++() {
    TagAttribute found;
    if (!NextAttribute(m_next, m_readable, found)) {
        m_next = nullptr;
        return *this;
    }
    m_attribute.m_name = found.name;
    m_attribute.m_value = found.value;
    m_attribute.m_isQuoted = found.isQuoted;
    m_attribute.m_hasEqualsSign = found.hasEqualsSign;
    return *this;
}

// ---- By record

std::string_view QzMarkup::TagName(int iPos) const {
    if (iPos == 0)
        return std::string_view();
    const int nLeft = StartL(iPos) + 1;
    const char* const start = SkipBlanks(m_text->Range(nLeft, StartR(iPos)).data());
    const char* const end = SkipName(start, m_text->PieceEnd(nLeft));
    return std::string_view(start, static_cast<std::size_t>(end - start));
}

KeldMBString QzMarkup::GetTagName(int iPos) const {
    return KeldMBString(TagName(iPos));
}

KeldMBString QzMarkup::GetData(int iPos) const {
    std::string data;
    const std::string_view view = Data(iPos, data);
    return view.data() == data.data() ? KeldMBString(std::move(data)) : KeldMBString(view);
}

// Most elements have one piece of text without a reference.
std::string_view QzMarkup::Data(int iPos, std::string& scratch) const {
    if (iPos == 0 || IsEmptyElement(iPos))
        return std::string_view();
    if (Pos(iPos).iElemChild == 0) {
        const std::string_view text = m_text->Range(StartR(iPos) + 1, EndL(iPos));
        if (FindMarkup(text) == text.size())
            return text;
    }
    scratch.clear();
    return TryMemory([&] { AppendData(scratch, iPos); }) ? std::string_view(scratch) : std::string_view();
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
        const std::string_view name = TagName(iPos);
        range.m_inside = name.data() + name.size();
        range.m_readable = m_text->PieceEnd(StartL(iPos));
    }
    return range;
}

QzMarkup::Attribute QzMarkup::AttributeAt(int iPos, int n) const {
    Attribute attribute;
    if (iPos == 0 || n < 0)
        return attribute;
    AttributeMemo& memo = m_text->Memo();
    const AttributeMemo::Tag tag{StartL(iPos), StartR(iPos)};
    AttributeMemo::Place place; // NOLINT(cppcoreguidelines-pro-type-member-init): of no use unless it is found
    if (memo.Lookup(tag, n, place)) {
        const std::string_view text = m_text->Range(place.name, place.value + place.valueLength);
        attribute.m_name = std::string_view(text.data(), static_cast<std::size_t>(place.nameLength));
        attribute.m_value =
            std::string_view(text.data() + (place.value - place.name), static_cast<std::size_t>(place.valueLength));
        return attribute;
    }
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
        memo.SetPlace(n, {offsetOf(found.m_name), static_cast<int>(found.m_name.size()), offsetOf(found.m_value),
                          static_cast<int>(found.m_value.size())});
        return found;
    }
    return attribute;
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
    count = 0;
    for (const Attribute& found : AttributesOf(iPos)) {
        const auto offsetOf = [&](std::string_view text) { return tag.left + static_cast<int>(text.data() - start); };
        if (count < AttributeMemo::Count)
            memo.SetPlace(count, {offsetOf(found.m_name), static_cast<int>(found.m_name.size()),
                                  offsetOf(found.m_value), static_cast<int>(found.m_value.size())});
        ++count;
    }
    memo.SetTotal(tag, count);
    return count;
}

KeldMBString QzMarkup::TextFromDoc(int nLeft, int nRight) const {
    return Resolved(m_text->Range(nLeft, nRight < KeldMBString::MaxLength ? nRight + 1 : nRight));
}

} // namespace Qzc
