// QzMarkup's editing: from markup and texts to splices of the text and changes of the records.

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <utility>

#include "base/keldmemory.h"
#include "toolkit/qzmarkup.h"
#include "toolkit/xml/attributenames.h"
#include "toolkit/xml/qzmarkupinline.h"
#include "toolkit/xml/qzmarkupscan.h"
#include "toolkit/xml/xmltext.h"

namespace Qzc {

using namespace MarkupScan;

namespace {

constexpr std::string_view LineEnd = "\r\n";

std::string_view View(const char* text) {
    return text != nullptr ? text : std::string_view();
}

// The name, empty where it is none.
std::string_view NameText(const char* szName) {
    const char* p = szName != nullptr ? szName : "";
    const char* const name = p;
    for (unsigned char allowed = NameStart; *p != '\0'; ++p) {
        if (!Is(*p, allowed) && !IsSecondByte(name, p))
            return std::string_view();
        allowed = NameStart | NamePart;
    }
    return std::string_view(name, static_cast<std::size_t>(p - name));
}

/// Copies without a call what is short.
void CopyBytes(char* to, const char* from, std::size_t count) {
    const auto copyEnds = [&](auto part) {
        auto last = part;
        std::memcpy(&part, from, sizeof(part));
        std::memcpy(&last, from + count - sizeof(last), sizeof(last));
        std::memcpy(to, &part, sizeof(part));
        std::memcpy(to + count - sizeof(last), &last, sizeof(last));
    };
    if (count - 8 <= 8)
        copyEnds(std::uint64_t{});
    else if (count - 4 <= 4)
        copyEnds(std::uint32_t{});
    else
        std::memcpy(to, from, count);
}

} // namespace

// ---- Editing

unsigned char QzMarkup::IsName(const char* szName) {
    return NameText(szName).empty() ? 0 : 1;
}

unsigned char QzMarkup::AddElem(const char* szName, const char* szData) {
    return AddElem(szName, szData, 0, 0);
}

unsigned char QzMarkup::InsertElem(const char* szName, const char* szData) {
    return AddElem(szName, szData, 1, 0);
}

unsigned char QzMarkup::AddChildElem(const char* szName, const char* szData) {
    return AddElem(szName, szData, 0, 1);
}

unsigned char QzMarkup::InsertChildElem(const char* szName, const char* szData) {
    return AddElem(szName, szData, 1, 1);
}

unsigned char QzMarkup::AddSubDoc(const char* szSubDoc) {
    return AddSubDoc(szSubDoc, 0, 0);
}

unsigned char QzMarkup::InsertSubDoc(const char* szSubDoc) {
    return AddSubDoc(szSubDoc, 1, 0);
}

unsigned char QzMarkup::AddChildSubDoc(const char* szSubDoc) {
    return AddSubDoc(szSubDoc, 0, 1);
}

unsigned char QzMarkup::InsertChildSubDoc(const char* szSubDoc) {
    return AddSubDoc(szSubDoc, 1, 1);
}

unsigned char QzMarkup::SetAttrib(const char* szAttrib, const char* szValue) {
    return SetAttrib(m_iPos, szAttrib, szValue);
}

unsigned char QzMarkup::SetAttrib(const char* szAttrib, int nValue) {
    return SetAttrib(m_iPos, szAttrib, nValue);
}

unsigned char QzMarkup::SetChildAttrib(const char* szAttrib, const char* szValue) {
    return SetAttrib(m_iPosChild, szAttrib, szValue);
}

unsigned char QzMarkup::SetChildAttrib(const char* szAttrib, int nValue) {
    return SetAttrib(m_iPosChild, szAttrib, nValue);
}

unsigned char QzMarkup::AddChildAttrib(const char* szAttrib, const char* szValue) {
    return SetChildAttrib(szAttrib, szValue);
}

unsigned char QzMarkup::AddChildAttrib(const char* szAttrib, int nValue) {
    return SetChildAttrib(szAttrib, nValue);
}

unsigned char QzMarkup::SetData(const char* szData, int nCDATA) {
    return SetData(m_iPos, szData, nCDATA);
}

unsigned char QzMarkup::SetChildData(const char* szData, int nCDATA) {
    return SetData(m_iPosChild, szData, nCDATA);
}

unsigned char QzMarkup::SetRealData(const char* szData) {
    return SetRealData(m_iPos, szData);
}

unsigned char QzMarkup::RemoveElem() {
    if (m_nNodeType != NodeElement)
        return 0;
    const int iPosParent = m_iPosParent;
    SetPos(iPosParent, RemoveElem(m_iPos), 0);
    return 1;
}

unsigned char QzMarkup::RemoveChildElem() {
    if (m_iPosChild == 0)
        return 0;
    m_iPosChild = RemoveElem(m_iPosChild);
    return 1;
}

/// Makes the markup of one edit in memory that serves for the next one, too.
class QzMarkup::Writer {
public:
    /// `text` is to be escaped, `others` the number of bytes beside it.
    Writer(std::string& memory, std::string_view text, TextIn place, std::size_t others)
        : m_memory(memory), m_text(text), m_place(place) {
        constexpr std::size_t Small = 4096; // for a large text only what it needs is taken, and given back
        const std::size_t size = others + (text.size() <= Small ? MaxEscape * text.size() : EscapedLength(text, place));
        m_isWhole = size <= KeldMBString::MaxLength;
        if (!m_isWhole)
            return;
        if (m_memory.size() < size + EscapeSlack && !TryMemory([&] { m_memory.resize(size + EscapeSlack); })) {
            m_isWhole = false;
            return;
        }
        m_isLarge = size > 16 * Small;
        m_end = m_memory.data();
    }
    ~Writer() {
        if (m_isLarge)
            std::string().swap(m_memory);
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    /// Otherwise it is longer than a document, or than the memory has room for: nothing may be put.
    bool IsWhole() const { return m_isWhole; }
    Writer& Put(std::string_view text) {
        CopyBytes(m_end, text.data(), text.size());
        m_end += text.size();
        return *this;
    }
    Writer& PutEscaped() {
        m_end = WriteEscaped(m_end, m_text, m_place);
        return *this;
    }
    int GetLength() const { return static_cast<int>(m_end - m_memory.data()); }
    std::string_view View() const { return std::string_view(m_memory.data(), static_cast<std::size_t>(GetLength())); }

private:
    std::string& m_memory;
    std::string_view m_text;
    TextIn m_place;
    char* m_end = nullptr;
    bool m_isWhole = false;
    bool m_isLarge = false;
};

unsigned char QzMarkup::AddElem(const char* szName, const char* szData, unsigned char bInsert,
                                unsigned char bAddChild) {
    const std::string_view name = NameText(szName);
    const std::string_view data = View(szData);
    if (name.empty() || name.size() > MaxValueLength || data.size() > MaxValueLength)
        return 0;
    Writer markup(m_scratch, data, TextIn::Element, 2 * name.size() + 8);
    if (!markup.IsWhole())
        return 0;
    markup.Put("<").Put(name).Put(data.empty() ? "/>" : ">");
    ElementPos only{};
    only.nStartR = markup.GetLength() - 1;
    if (!data.empty()) {
        markup.PutEscaped();
        only.nEndL = markup.GetLength();
        markup.Put("</").Put(name).Put(">");
    }
    only.nEndR = markup.GetLength() - 1;
    markup.Put(LineEnd);
    return InsertMarkup(markup.View(), bInsert, bAddChild, &only);
}

unsigned char QzMarkup::AddSubDoc(const char* szSubDoc, unsigned char bInsert, unsigned char bAddChild) {
    std::string_view text = View(szSubDoc);
    if (text.size() > KeldMBString::MaxLength - 2)
        return 0;
    if (text.substr(0, 6) == "<?xml " && text.find("?>") != std::string_view::npos) {
        text.remove_prefix(text.find("?>") + 2);
        text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
    }
    KeldMBString markup(text);
    if (!text.empty() && text.back() != '\n')
        markup.Append(LineEnd);
    return InsertMarkup(markup.View(), bInsert, bAddChild);
}

unsigned char QzMarkup::InsertMarkup(std::string_view text, unsigned char bInsert, unsigned char bAddChild,
                                     const ElementPos* only) {
    if (bAddChild && m_nNodeType != NodeElement)
        return 0;
    const int iPosParent = bAddChild ? m_iPos : m_iPosParent;
    const int iPosRel = bAddChild ? m_iPosChild : m_iPos;
    if (iPosParent == 0)
        return InsertTopMarkup(KeldMBString(text));

    const int iPosBefore =
        bInsert ? (iPosRel != 0 ? PreviousSibling(iPosRel) : 0) : (iPosRel != 0 ? iPosRel : Pos(iPosParent).iElemLast);
    const int length = static_cast<int>(text.size());
    Fragment fragment;
    if (IsEmptyElement(iPosParent)) {
        if (!ReplaceContent(iPosParent, KeldMBString(LineEnd) + KeldMBString(text), true))
            return 0;
        fragment.iLast = Pos(iPosParent).iElemLast;
    } else {
        const int nLeft = LocateNew(iPosParent, iPosRel, bInsert);
        if (nLeft > KeldMBString::MaxLength - length)
            return 0;
        if (only != nullptr) {
            const int iPos = GetFreePos();
            if (iPos == 0)
                return 0;
            Pos(iPos) =
                ElementPos{nLeft, only->nStartR + nLeft, only->nEndL + nLeft, only->nEndR + nLeft, 0, iPosParent, 0, 0};
            fragment = {iPos, iPos, 1};
        } else if (!ParseFragment(KeldMBString(text), nLeft, iPosParent, fragment) || fragment.nCount == 0) {
            return 0;
        }
        if (!Splice(nLeft, 0, text)) {
            ReleasePos(fragment.iFirst);
            return 0;
        }
        PosInsert(fragment, iPosParent, iPosBefore);
        Adjust(fragment.iLast, length, 1);
        m_text->KeepWhole(EndR(fragment.iLast) + 1, TagOffset(m_fromEnd));
    }
    if (bAddChild)
        m_iPosChild = fragment.iLast;
    else
        SetPos(m_iPosParent, fragment.iLast, 0);
    return 1;
}

// A document has one top element, and what may stand around it depends on text that has no records: so the
// whole is parsed afresh, which it is once in its life.
unsigned char QzMarkup::InsertTopMarkup(const KeldMBString& text) {
    Fragment fragment;
    if (IsWellFormed() || !ParseFragment(text, 0, 0, fragment))
        return 0;
    ReleasePos(fragment.iFirst);
    const int length = m_text->GetLength();
    if (fragment.nCount != 1 || !Splice(length, 0, text.View()))
        return 0;
    KeldMBString kept = m_strError;
    const int nKept = m_nErrorAt;
    const bool parsed = ParseTree() && Pos(Pos(0).iElemChild).nStartL >= length;
    m_strError = std::move(kept);
    m_nErrorAt = nKept;
    if (!parsed) {
        Pos(0) = ElementPos{};
        m_iPosFree = 1;
        m_iPosReleased = 0;
        Splice(length, text.GetLength(), std::string_view());
        return 0;
    }
    SetPos(0, Pos(0).iElemChild, 0);
    return 1;
}

unsigned char QzMarkup::SetAttrib(int iPos, const char* szAttrib, int nValue) {
    char value[16] = {};
    std::to_chars(value, value + sizeof(value) - 1, nValue);
    return SetAttrib(iPos, szAttrib, value);
}

unsigned char QzMarkup::SetAttrib(int iPos, const char* szAttrib, const char* szValue) {
    const std::string_view name = NameText(szAttrib);
    const std::string_view value = View(szValue);
    if (iPos == 0 || name.empty() || name.size() > MaxValueLength || value.size() > MaxValueLength)
        return 0;
    Writer text(m_scratch, value, TextIn::Attribute, name.size() + 8);
    if (!text.IsWhole())
        return 0;
    int nLeft = 0;
    int nReplace = 0;
    Attribute attribute;
    const int nBody = TagBodyEnd(iPos);
    const bool isAlone = IsNameAlone(iPos, nBody);
    if (isAlone && m_attributeNames != nullptr && m_attributeNames->iPos == iPos)
        m_attributeNames.reset(); // what is noted was of this tag once, or of another in the same record
    const bool found = !isAlone && FindOrNote(iPos, name, attribute, nLeft);
    if (found) {
        const int quote = attribute.m_found.isQuoted ? 1 : 0;
        nLeft -= quote;
        nReplace = static_cast<int>(attribute.m_found.value.size()) + 2 * quote;
        text.Put(attribute.m_found.hasEqualsSign ? "" : "=");
    } else {
        nLeft = nBody;
        // An attribute that was left without its value must not take this one's name for it.
        const bool openValue = nLeft > 0 && *m_text->At(nLeft - 1) == '=';
        text.Put(openValue ? "\"\" " : " ").Put(name).Put("=");
    }
    text.Put("\"").PutEscaped().Put("\"");
    if (!SpliceStartTag(iPos, nLeft, nReplace, text.View()))
        return 0;
    if (m_attributeNames != nullptr && m_attributeNames->iPos == iPos) {
        m_attributeNames->nChanges = m_text->Changes();
        if (found)
            m_attributeNames->nNext = nLeft + text.GetLength() - StartL(iPos);
    }
    return 1;
}

// The blanks in front of it go with the attribute, unless it alone keeps its neighbours apart.
unsigned char QzMarkup::RemoveAttrib(const char* szAttrib) {
    for (const Attribute& one : AttributesOf(m_iPos)) {
        if (one.m_found.name != View(szAttrib))
            continue;
        const std::string_view tag = m_text->Range(StartL(m_iPos), StartR(m_iPos) + 1);
        const char* const last = one.m_found.hasEqualsSign ? one.m_found.value.data() + one.m_found.value.size() +
                                                                 (one.m_found.isQuoted ? 1 : 0)
                                                           : one.m_found.name.data() + one.m_found.name.size();
        auto from = static_cast<std::size_t>(one.m_found.name.data() - tag.data());
        const auto to = static_cast<std::size_t>(last - tag.data());
        constexpr std::string_view Blanks = " \t\r\n";
        if (tag.substr(to, 1).find_first_of(" \t\r\n/>") == 0)
            from = tag.find_last_not_of(Blanks, from - 1) + 1;
        return SpliceStartTag(m_iPos, StartL(m_iPos) + static_cast<int>(from), static_cast<int>(to - from), {}) ? 1 : 0;
    }
    return 0;
}

// A change inside a start tag, of which the element's own record is told.
bool QzMarkup::SpliceStartTag(int iPos, int nLeft, int nReplace, std::string_view insert) {
    const int nLeftOfTag = StartL(iPos);
    const int nShift = static_cast<int>(insert.size()) - nReplace;
    if (!Splice(nLeft, nReplace, insert))
        return false;
    ElementPos& pos = Pos(iPos);
    pos.nStartR += nShift;
    if (IsEmptyElement(iPos))
        pos.nEndR += nShift;
    const Tag behind = TagBehind({iPos, false});
    if (behind.isEnd && behind.iPos == iPos && TagBehindElement(iPos) == m_fromEnd) { // it alone is told from the start
        pos.nEndL += nShift;
        pos.nEndR += nShift;
    } else {
        TellFromEnd(behind, nShift);
    }
    const int nBehind = nLeft + static_cast<int>(insert.size());
    // In a tag that is very long the gap stays where it is: going through its attributes would move it to and fro.
    constexpr int Far = 1 << 15;
    if (nBehind - nLeftOfTag <= Far || pos.nStartR - nBehind <= Far)
        m_text->KeepWhole(nLeftOfTag, pos.nStartR + 1);
    return true;
}

bool QzMarkup::FindOrNote(int iPos, std::string_view name, Attribute& attribute, int& nValue) {
    constexpr int Many = 64;
    const bool noted = m_attributeNames != nullptr && m_attributeNames->iPos == iPos &&
                       m_attributeNames->nChanges == m_text->Changes();
    if (!noted)
        m_attributeNames.reset();
    const int nTag = StartL(iPos);
    const int nEnd = StartR(iPos) + 1;
    // Whoever sets one attribute after the other finds it behind the last one, which is also where the gap is.
    AttributeRange rest;
    const int nNext =
        noted && m_attributeNames->nNext != 0 && !m_attributeNames->HasTwins() ? nTag + m_attributeNames->nNext : 0;
    const auto isFound = [&](const Attribute& one, const AttributeRange& range, int nInside) {
        if (one.m_found.name != name)
            return false;
        attribute = one;
        nValue = nInside + static_cast<int>(one.m_found.value.data() - range.m_inside);
        return true;
    };
    if (nNext != 0) {
        rest.m_inside = m_text->Range(nNext, nEnd).data();
        rest.m_readable = m_text->PieceEnd(nNext);
        const AttributeRange::Iterator next = rest.begin();
        if (next != rest.end() && isFound(*next, rest, nNext))
            return true;
    }
    bool isNew = false;
    if (noted && TryMemory([&] { isNew = m_attributeNames->Add(name); }) && isNew)
        return false;

    int count = 0;
    const auto findIn = [&](const AttributeRange& range, int nInside) {
        for (const Attribute& one : range) {
            ++count;
            if (isFound(one, range, nInside))
                return true;
        }
        return false;
    };
    if (nNext != 0 && findIn(rest, nNext))
        return true;
    m_text->KeepWhole(nTag, nEnd);
    const AttributeRange all = AttributesOf(iPos);
    count = 0;
    const bool found = findIn(all, nTag + static_cast<int>(all.m_inside - m_text->Range(nTag, nEnd).data()));
    if (noted || count < Many)
        return found;
    const bool kept = TryMemory([&] {
        m_attributeNames = std::make_unique<AttributeNames>();
        m_attributeNames->iPos = iPos;
        m_attributeNames->nChanges = m_text->Changes();
        for (const Attribute& one : all)
            m_attributeNames->AddKnown(one.m_found.name);
        if (!found)
            m_attributeNames->Add(name);
    });
    if (!kept)
        m_attributeNames.reset();
    return found;
}

unsigned char QzMarkup::SetData(int iPos, const char* szData, int nCDATA) {
    if (View(szData).size() > MaxValueLength)
        return 0;
    KeldMBString content;
    if (nCDATA == 0 || !CreateNode(content, NodeCData, szData))
        AppendEscaped(content, View(szData), TextIn::Element);
    return ReplaceContent(iPos, content);
}

unsigned char QzMarkup::SetRealData(int iPos, const char* szData) {
    return View(szData).size() <= KeldMBString::MaxLength ? ReplaceContent(iPos, KeldMBString(szData)) : 0;
}

unsigned char QzMarkup::ReplaceContent(int iPos, const KeldMBString& content, bool bNeedsElement) {
    if (iPos == 0)
        return 0;
    const bool empty = IsEmptyElement(iPos);
    const int nLeft = empty ? TagBodyEnd(iPos) : StartR(iPos) + 1;
    const int nReplace = (empty ? StartR(iPos) + 1 : EndL(iPos)) - nLeft;
    const int nContent = empty ? nLeft + 1 : nLeft;
    Fragment fragment;
    if (!ParseFragment(content, nContent, iPos, fragment) || (bNeedsElement && fragment.nCount == 0))
        return 0;
    KeldMBString opened;
    if (empty)
        opened.Append(">").Append(content.View()).Append("</").Append(TagName(iPos)).Append(">");
    const std::string_view text = empty ? opened.View() : content.View();
    if (!Splice(nLeft, nReplace, text)) {
        ReleasePos(fragment.iFirst);
        return 0;
    }
    const int nShift = static_cast<int>(text.size()) - nReplace;
    ReleaseChildren(iPos);
    ElementPos& pos = Pos(iPos);
    pos.iElemChild = fragment.iFirst;
    pos.iElemLast = fragment.iLast;
    if (empty) {
        pos.nStartR = nLeft;
        pos.nEndL = nContent + content.GetLength();
        pos.nEndR = nLeft + static_cast<int>(text.size()) - 1;
        Adjust(iPos, nShift, 1);
    } else {
        TellFromEnd({iPos, true}, nShift);
    }
    return 1;
}

int QzMarkup::RemoveElem(int iPos) {
    if (iPos == 0)
        return 0;
    const int iPosBefore = PreviousSibling(iPos);
    int nLeft = m_text->Cut(StartL(iPos));
    int nRight = m_text->Cut(EndR(iPos) + 1); // the first byte that stays
    const auto before = [&](int n) { return n > 0 ? *m_text->At(n - 1) : '\n'; };
    int nLine = nLeft;
    while (before(nLine) == ' ' || before(nLine) == '\t')
        --nLine;
    const int nNextLine = SkipLineEnd(nRight);
    if (nNextLine != nRight && before(nLine) == '\n') { // alone on its line
        nLeft = nLine;
        nRight = nNextLine;
    }
    Splice(nLeft, nRight - nLeft, std::string_view());

    const int iPosParent = Pos(iPos).iElemParent;
    const int iPosBehind = Pos(iPos).iElemNext;
    Adjust(iPos, nLeft - nRight, 1);
    (iPosBefore != 0 ? Pos(iPosBefore).iElemNext : Pos(iPosParent).iElemChild) = iPosBehind;
    if (Pos(iPosParent).iElemLast == iPos)
        Pos(iPosParent).iElemLast = iPosBefore;
    SetPrevious(iPosBehind, iPosBefore);
    Pos(iPos).iElemNext = 0;
    ReleasePos(iPos);
    if (iPosParent == 0) { // what stood behind the top element may hold another
        KeldMBString kept = m_strError;
        m_mapSavedPos.RemoveAll();
        ParseTree();
        m_strError = std::move(kept);
        m_nErrorAt = -1;
        return iPosBefore;
    }
    m_text->KeepWhole((iPosBefore != 0 ? EndR(iPosBefore) : StartR(iPosParent)) + 1, TagOffset(m_fromEnd));
    return iPosBefore;
}

int QzMarkup::LocateNew(int iPosParent, int iPosRel, unsigned char bInsert) const {
    if (iPosRel != 0)
        return bInsert ? StartL(iPosRel) : SkipLineEnd(EndR(iPosRel) + 1);
    return bInsert ? SkipLineEnd(StartR(iPosParent) + 1) : EndL(iPosParent);
}

int QzMarkup::SkipLineEnd(int nOffset) const {
    int n = m_text->Cut(nOffset);
    const char* p = m_text->At(n);
    const auto step = [&] {
        ++n;
        ++p;
        if (*p == '\0') // another piece of the text may follow
            p = m_text->At(n);
    };
    while (*p == ' ' || *p == '\t')
        step();
    if (*p == '\r')
        step();
    return m_text->Cut(*p == '\n' ? n + 1 : nOffset);
}

int QzMarkup::TagBodyEnd(int iPos) const {
    const int nFirst = m_text->Cut(StartL(iPos) + 1);
    int nEnd = m_text->Cut(StartR(iPos));
    // An empty element's slash may follow other slashes, which must not stay behind to end an opened tag.
    const bool empty = IsEmptyElement(iPos);
    const auto isFiller = [empty](char c) { return Is(c, Blank) || (empty && c == '/'); };
    while (nEnd > nFirst && isFiller(*m_text->At(nEnd - 1)))
        --nEnd;
    return nEnd;
}

// Tells at a glance that a start tag has no attributes, as that of an element that was added last.
bool QzMarkup::IsNameAlone(int iPos, int nBodyEnd) const {
    constexpr int Short = 32;
    const int nName = StartL(iPos) + 1;
    if (nBodyEnd - nName > Short)
        return false;
    const std::string_view body = m_text->Range(nName, nBodyEnd);
    return std::none_of(body.begin(), body.end(), [](char c) { return Is(c, Delimiter | Quote); });
}

void QzMarkup::ReleaseChildren(int iPos) {
    if (Pos(iPos).iElemChild == 0)
        return;
    ReleasePos(Pos(iPos).iElemChild);
    if (IsReleased(m_iPosChild))
        m_iPosChild = 0;
}

// ---- What is written

KeldMBString QzMarkup::TextToDoc(const char* szText, unsigned char bAttrib) const {
    const std::string_view text = View(szText);
    KeldMBString escaped;
    escaped.Reserve(static_cast<int>(std::min<std::size_t>(text.size() + text.size() / 10, KeldMBString::MaxLength)));
    AppendEscaped(escaped, text, bAttrib ? TextIn::Attribute : TextIn::Element);
    return escaped;
}

unsigned char QzMarkup::CreateNode(KeldMBString& strNode, int nNodeType, const char* szText) {
    const std::string_view text = View(szText);
    if (nNodeType != NodeCData || text.find("]]>") != std::string_view::npos)
        return 0;
    strNode = "<![CDATA[";
    strNode.Append(text).Append("]]>");
    return 1;
}

} // namespace Qzc
