#include "toolkit/qzmarkup.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/keldarray.h"
#include "toolkit/qztoolkit.h"
#include "toolkit/xml/qzmarkupscan.h"
#include "toolkit/xml/xmltext.h"

namespace Qzc {

using namespace MarkupScan;

namespace {

constexpr const char* LineEnd = "\r\n";

std::string_view View(const char* text) {
    return text != nullptr ? text : std::string_view();
}

} // namespace

// ---- Document

QzMarkup::QzMarkup() : m_encoding(QzToolkit::GetCurCharset()) {
    SetDoc(nullptr);
}

QzMarkup::QzMarkup(const char* szDoc) : m_encoding(QzToolkit::GetCurCharset()) {
    SetDoc(szDoc);
}

QzMarkup::QzMarkup(const QzMarkup& other)
    : m_encoding(other.m_encoding), m_fileForm(other.m_fileForm), m_strDoc(other.m_strDoc),
      m_strError(other.m_strError), m_iPosParent(other.m_iPosParent), m_iPos(other.m_iPos),
      m_iPosChild(other.m_iPosChild), m_nNodeType(other.m_nNodeType), m_iPosFree(other.m_iPosFree),
      m_iPosReleased(other.m_iPosReleased), m_mapSavedPos(other.m_mapSavedPos) {
    while (m_nPosCapacity < m_iPosFree && AllocPosArray(other.m_nPosCapacity)) {
    }
    if (m_nPosCapacity < m_iPosFree) { // no memory: the text alone, as if it were not well formed
        SetPos(0, 0, 0);
        m_mapSavedPos.RemoveAll();
        m_segments.clear();
        m_nPosCapacity = 0;
        m_iPosFree = 1;
        m_iPosReleased = 0;
        return;
    }
    for (int i = 0; i < m_iPosFree; i += SegmentSize)
        std::copy_n(&other.Pos(i), std::min(m_iPosFree - i, SegmentSize), &Pos(i));
}

QzMarkup::QzMarkup(QzMarkup&& other) noexcept : QzMarkup() {
    Swap(other);
}

QzMarkup& QzMarkup::operator=(QzMarkup other) noexcept {
    Swap(other);
    return *this;
}

QzMarkup::~QzMarkup() = default;

void QzMarkup::Swap(QzMarkup& other) noexcept {
    std::swap(m_encoding, other.m_encoding);
    std::swap(m_fileForm, other.m_fileForm);
    std::swap(m_strDoc, other.m_strDoc);
    std::swap(m_strError, other.m_strError);
    std::swap(m_iPosParent, other.m_iPosParent);
    std::swap(m_iPos, other.m_iPos);
    std::swap(m_iPosChild, other.m_iPosChild);
    std::swap(m_nNodeType, other.m_nNodeType);
    std::swap(m_iPosFree, other.m_iPosFree);
    std::swap(m_iPosReleased, other.m_iPosReleased);
    std::swap(m_mapSavedPos, other.m_mapSavedPos);
    std::swap(m_segments, other.m_segments);
    std::swap(m_nPosCapacity, other.m_nPosCapacity);
    ForgetAttributes();
    other.ForgetAttributes();
}

unsigned char QzMarkup::SetDoc(const char* szDoc) {
    const std::string_view text = View(szDoc);
    if (text.size() > KeldMBString::MaxLength) {
        m_strError.Format("%zu bytes are too many for a document", text.size());
        return 0;
    }
    m_strDoc.Replace(0, m_strDoc.GetLength(), text);
    m_fileForm.isConverted = true;
    m_strError.Empty();
    return ParseDoc();
}

unsigned char QzMarkup::IsWellFormed() const {
    return m_nPosCapacity != 0 && Pos(0).iElemChild != 0;
}

// ---- Navigation

unsigned char QzMarkup::FindElem(const char* szName) {
    const int iPos = FindElem(m_iPosParent, m_iPos, szName);
    if (iPos == 0)
        return 0;
    SetPos(m_iPosParent, iPos, 0);
    return 1;
}

unsigned char QzMarkup::FindChildElem(const char* szName) {
    const int iPos = m_iPos != 0 ? FindElem(m_iPos, m_iPosChild, szName) : 0;
    if (iPos == 0)
        return 0;
    m_iPosChild = iPos;
    return 1;
}

unsigned char QzMarkup::MoveNextElem() {
    return FindElem(nullptr);
}

unsigned char QzMarkup::MoveNextChildElem() {
    return FindChildElem(nullptr);
}

unsigned char QzMarkup::IntoElem() {
    if (m_nNodeType != NodeElement)
        return 0;
    SetPos(m_iPos, m_iPosChild, 0);
    return 1;
}

unsigned char QzMarkup::OutOfElem() {
    if (m_iPosParent == 0)
        return 0;
    SetPos(Pos(m_iPosParent).iElemParent, m_iPosParent, m_iPos);
    return 1;
}

unsigned char QzMarkup::ResetPos() {
    SetPos(0, 0, 0);
    return 1;
}

unsigned char QzMarkup::ResetMainPos() {
    SetPos(m_iPosParent, 0, 0);
    return 1;
}

unsigned char QzMarkup::ResetChildPos() {
    m_iPosChild = 0;
    return 1;
}

unsigned char QzMarkup::HasChild() const {
    return m_nNodeType == NodeElement && Pos(m_iPos).iElemChild != 0;
}

unsigned char QzMarkup::SavePos(const char* szName) {
    m_mapSavedPos.SetAt(szName, SavedPos{m_iPosParent, m_iPos, m_iPosChild});
    return 1;
}

unsigned char QzMarkup::RestorePos(const char* szName) {
    SavedPos saved;
    if (!m_mapSavedPos.Lookup(szName, saved))
        return 0;
    SetPos(saved.iPosParent, saved.iPos, saved.iPosChild);
    return 1;
}

int QzMarkup::FindElem(int iPosParent, int iPos, const char* szName) const {
    if (m_nPosCapacity == 0)
        return 0;
    const std::string_view name = View(szName);
    // Most names differ, which the bytes alone tell.
    const auto isNamed = [&](int i) {
        const char* const start = SkipBlanks(m_strDoc.Cstr() + Clip(Pos(i).nStartL + 1));
        return std::strncmp(start, name.data(), name.size()) == 0 && SkipName(start) == start + name.size();
    };
    int iFound = iPos != 0 ? Pos(iPos).iElemNext : Pos(iPosParent).iElemChild;
    while (iFound != 0 && !name.empty() && !isNamed(iFound))
        iFound = Pos(iFound).iElemNext;
    return iFound;
}

// ---- Reading

KeldMBString QzMarkup::GetTagName() const {
    return GetTagName(m_iPos);
}

KeldMBString QzMarkup::GetChildTagName() const {
    return GetTagName(m_iPosChild);
}

KeldMBString QzMarkup::GetData() const {
    return GetData(m_iPos);
}

KeldMBString QzMarkup::GetChildData() const {
    return GetData(m_iPosChild);
}

KeldMBString QzMarkup::GetAttrib(const char* szAttrib) const {
    return GetAttrib(m_iPos, szAttrib);
}

KeldMBString QzMarkup::GetChildAttrib(const char* szAttrib) const {
    return GetAttrib(m_iPosChild, szAttrib);
}

KeldMBString QzMarkup::GetAttribName(int n) const {
    return AttribName(m_iPos, n);
}

KeldMBString QzMarkup::GetChildAttribName(int n) const {
    return AttribName(m_iPosChild, n);
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

int QzMarkup::Clip(int offset) const {
    return std::clamp(offset, 0, m_strDoc.GetLength());
}

std::string_view QzMarkup::Range(int nLeft, int nRight) const {
    const int left = Clip(nLeft);
    return m_strDoc.View().substr(static_cast<std::size_t>(left),
                                  static_cast<std::size_t>(std::max(Clip(nRight + 1) - left, 0)));
}

std::string_view QzMarkup::TagName(int iPos) const {
    const char* const start = SkipBlanks(m_strDoc.Cstr() + Clip(Pos(iPos).nStartL + 1));
    return std::string_view(start, static_cast<std::size_t>(SkipName(start) - start));
}

QzMarkup::TokenPos QzMarkup::InsideTag(int iPos) const {
    const std::string_view name = TagName(iPos);
    return TokenPos(m_strDoc.Cstr(), static_cast<int>(name.data() + name.size() - m_strDoc.Cstr()));
}

KeldMBString QzMarkup::GetTagName(int iPos) const {
    return iPos != 0 ? KeldMBString(TagName(iPos)) : KeldMBString();
}

KeldMBString QzMarkup::GetData(int iPos) const {
    if (iPos == 0 || IsEmptyElement(iPos))
        return KeldMBString();
    const int nEnd = Clip(Pos(iPos).nEndL);
    TokenPos token(m_strDoc.Cstr(), Clip(Pos(iPos).nStartR + 1));
    const auto nextTag = [&] {
        const std::string_view rest = Range(token.nNext, nEnd - 1);
        return static_cast<int>(std::min(rest.find('<'), rest.size())) + token.nNext;
    };
    int nTag = nextTag();
    if (nTag >= nEnd)
        return TextFromDoc(token.nNext, nEnd - 1);

    KeldMBString data;
    int iChild = Pos(iPos).iElemChild;
    for (; nTag < nEnd; nTag = nextTag()) {
        data += TextFromDoc(token.nNext, nTag - 1);
        token.nNext = nTag;
        if (iChild != 0 && Pos(iChild).nStartL == nTag) {
            token.nNext = Clip(Pos(iChild).nEndR + 1);
            iChild = Pos(iChild).iElemNext;
            continue;
        }
        const int node = ParseNode(token);
        if (node == NodeInvalid || node == NodeElement) // only where records point astray
            return data;
        if (node == NodeCData)
            data.Append(Range(token.nL + 9, token.nR - 3));
    }
    return data += TextFromDoc(token.nNext, nEnd - 1);
}

KeldMBString QzMarkup::GetSubDoc(int iPos) const {
    return iPos != 0 ? KeldMBString(Range(Pos(iPos).nStartL, Pos(iPos).nEndR)) : KeldMBString();
}

KeldMBString QzMarkup::GetAttrib(int iPos, const char* szAttrib) const {
    if (iPos == 0)
        return KeldMBString();
    if (m_iAttributesOf == iPos) {
        const std::string_view name = View(szAttrib);
        const auto found = std::find_if(m_attributes.begin(), m_attributes.end(),
                                        [name](const Attribute& attribute) { return attribute.name == name; });
        return found != m_attributes.end() ? TextFromDoc(found->value.nL, found->value.nR) : KeldMBString();
    }
    TokenPos token = InsideTag(iPos);
    return FindAttrib(token, szAttrib) ? TextFromDoc(token.nL, token.nR) : KeldMBString();
}

KeldMBString QzMarkup::AttribName(int iPos, int n) const {
    return n >= 0 && n < AttribCount(iPos) ? KeldMBString(Attributes(iPos)[static_cast<std::size_t>(n)].name)
                                           : KeldMBString();
}

int QzMarkup::AttribCount(int iPos) const {
    return iPos != 0 ? static_cast<int>(Attributes(iPos).size()) : 0;
}

const std::vector<QzMarkup::Attribute>& QzMarkup::Attributes(int iPos) const {
    if (m_iAttributesOf != iPos) {
        m_attributes.clear();
        TokenPos token = InsideTag(iPos);
        Attribute attribute{{}, token, false};
        while (NextAttribute(token, attribute))
            m_attributes.push_back(attribute);
        m_iAttributesOf = iPos;
    }
    return m_attributes;
}

// ---- Escaping

KeldMBString QzMarkup::TextToDoc(const char* szText, unsigned char bAttrib) const {
    const std::string_view text = View(szText);
    KeldMBString escaped;
    escaped.Reserve(static_cast<int>(std::min<std::size_t>(text.size() + text.size() / 10, KeldMBString::MaxLength)));
    AppendEscaped(escaped, text, bAttrib ? "<&>'\"" : "<&>");
    return escaped;
}

KeldMBString QzMarkup::TextFromDoc(int nLeft, int nRight) const {
    return Unescaped(Range(nLeft, nRight));
}

unsigned char QzMarkup::CreateNode(KeldMBString& strNode, int nNodeType, const char* szText) {
    const std::string_view text = View(szText);
    if (nNodeType != NodeCData || text.find("]]>") != std::string_view::npos)
        return 0;
    strNode = "<![CDATA[";
    strNode.Append(text).Append("]]>");
    return 1;
}

// ---- Editing

unsigned char QzMarkup::IsName(const char* szName) {
    if (szName == nullptr)
        return 0;
    const char* p = szName;
    for (; *p != '&'; ++p) {
        if (Is(*p, Quote | Delimiter) && (Is(*p, Quote) || EndsName(szName, p)))
            break;
    }
    return *p == '\0' && p != szName;
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

unsigned char QzMarkup::AddElem(const char* szName, const char* szData, unsigned char bInsert,
                                unsigned char bAddChild) {
    const std::string_view name = View(szName);
    if (!IsName(szName) || View(szData).size() > MaxValueLength)
        return 0;
    const std::string_view data = View(szData);
    KeldMBString markup;
    markup.Reserve(static_cast<int>(
        std::min<std::size_t>(2 * name.size() + data.size() + data.size() / 10 + 8, KeldMBString::MaxLength)));
    markup.Append("<").Append(name).Append(data.empty() ? "/>" : ">");
    ElementPos only{};
    only.nStartR = markup.GetLength() - 1;
    if (!data.empty()) {
        AppendEscaped(markup, data, "<&>");
        only.nEndL = markup.GetLength();
        markup.Append("</").Append(name).Append(">");
    }
    only.nEndR = markup.GetLength() - 1;
    markup.Append(std::string_view(LineEnd));
    // Where the text may have grown beyond what a string holds, the parser finds out.
    const bool whole = markup.GetLength() <= KeldMBString::MaxLength / 2;
    return InsertMarkup(markup, bInsert, bAddChild, whole ? &only : nullptr);
}

unsigned char QzMarkup::AddSubDoc(const char* szSubDoc, unsigned char bInsert, unsigned char bAddChild) {
    std::string_view text = View(szSubDoc);
    if (text.substr(0, 6) == "<?xml " && text.find("?>") != std::string_view::npos) {
        text.remove_prefix(text.find("?>") + 2);
        text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
    }
    KeldMBString markup(text);
    if (!text.empty() && text.back() != '\n')
        markup += LineEnd;
    return InsertMarkup(markup, bInsert, bAddChild);
}

unsigned char QzMarkup::InsertMarkup(const KeldMBString& text, unsigned char bInsert, unsigned char bAddChild,
                                     const ElementPos* only) {
    if (bAddChild && m_nNodeType != NodeElement)
        return 0;
    const int iPosParent = bAddChild ? m_iPos : m_iPosParent;
    const int iPosRel = bAddChild ? m_iPosChild : m_iPos;
    if (iPosParent == 0)
        return InsertTopMarkup(text);

    const int iPosBefore =
        bInsert ? (iPosRel != 0 ? PreviousSibling(iPosRel) : 0) : (iPosRel != 0 ? iPosRel : Pos(iPosParent).iElemLast);
    Fragment fragment;
    if (IsEmptyElement(iPosParent)) {
        if (!ReplaceContent(iPosParent, KeldMBString(LineEnd) + text, true))
            return 0;
        fragment.iLast = Pos(iPosParent).iElemLast;
    } else {
        const int nLeft = LocateNew(iPosParent, iPosRel, bInsert);
        if (only != nullptr) {
            const int iPos = GetFreePos();
            if (iPos == 0)
                return 0;
            Pos(iPos) =
                ElementPos{nLeft, only->nStartR + nLeft, only->nEndL + nLeft, only->nEndR + nLeft, 0, iPosParent, 0, 0};
            fragment = {iPos, iPos, 1};
        } else if (!ParseFragment(text, nLeft, iPosParent, fragment) || fragment.nCount == 0) {
            return 0;
        }
        if (!DocChange(nLeft, 0, text)) {
            ReleasePos(fragment.iFirst);
            return 0;
        }
        PosInsert(fragment, iPosParent, iPosBefore);
        Adjust(fragment.iLast, text.GetLength(), 1);
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
    const int length = m_strDoc.GetLength();
    if (fragment.nCount != 1 || !DocChange(length, 0, text))
        return 0;
    KeldMBString kept = m_strError;
    const bool parsed = ParseTree() && Pos(Pos(0).iElemChild).nStartL >= length;
    m_strError = std::move(kept);
    if (!parsed) {
        m_strDoc.Delete(length, text.GetLength());
        ForgetAttributes();
        Pos(0) = ElementPos{};
        m_iPosFree = 1;
        m_iPosReleased = 0;
        return 0;
    }
    SetPos(0, Pos(0).iElemChild, 0);
    return 1;
}

unsigned char QzMarkup::SetAttrib(int iPos, const char* szAttrib, int nValue) {
    KeldMBString value;
    value.Format("%d", nValue);
    return SetAttrib(iPos, szAttrib, value.Cstr());
}

unsigned char QzMarkup::SetAttrib(int iPos, const char* szAttrib, const char* szValue) {
    const std::string_view name = View(szAttrib);
    if (iPos == 0 || !IsName(szAttrib) || View(szValue).size() > MaxValueLength)
        return 0;
    KeldMBString value = KeldMBString("\"") + TextToDoc(szValue, 1) + "\"";
    int nLeft = 0;
    int nReplace = 0;
    TokenPos token = InsideTag(iPos);
    Attribute attribute{{}, token, false};
    bool found = false;
    while (!found && NextAttribute(token, attribute))
        found = attribute.name == name;
    if (found) {
        const int quote = attribute.value.bIsString ? 1 : 0;
        nLeft = attribute.value.nL - quote;
        nReplace = attribute.value.nR - attribute.value.nL + 1 + 2 * quote;
        if (!attribute.hasEqualsSign)
            value.Insert(0, "=");
    } else {
        nLeft = TagBodyEnd(iPos);
        // An attribute that was left without its value must not take this one's name for it.
        const bool openValue = nLeft > 0 && m_strDoc[nLeft - 1] == '=';
        KeldMBString text(openValue ? "\"\" " : " ");
        value = text.Append(name).Append("=") + value;
    }
    if (!DocChange(nLeft, nReplace, value))
        return 0;
    const int nShift = value.GetLength() - nReplace;
    ElementPos& pos = Pos(iPos);
    const bool empty = IsEmptyElement(iPos);
    pos.nStartR += nShift;
    pos.nEndR += nShift;
    if (!empty)
        pos.nEndL += nShift;
    ShiftSubtrees(pos.iElemChild, nShift);
    Adjust(iPos, nShift, 1);
    return 1;
}

unsigned char QzMarkup::SetData(int iPos, const char* szData, int nCDATA) {
    if (View(szData).size() > MaxValueLength)
        return 0;
    KeldMBString content;
    if (nCDATA == 0 || !CreateNode(content, NodeCData, szData))
        content = TextToDoc(szData, 0);
    return ReplaceContent(iPos, content);
}

unsigned char QzMarkup::SetRealData(int iPos, const char* szData) {
    return ReplaceContent(iPos, KeldMBString(szData));
}

unsigned char QzMarkup::ReplaceContent(int iPos, const KeldMBString& content, bool bNeedsElement) {
    if (iPos == 0)
        return 0;
    const bool empty = IsEmptyElement(iPos);
    const int nLeft = empty ? TagBodyEnd(iPos) : Pos(iPos).nStartR + 1;
    const int nReplace = (empty ? Pos(iPos).nStartR + 1 : Pos(iPos).nEndL) - nLeft;
    const int nContent = empty ? nLeft + 1 : nLeft;
    Fragment fragment;
    if (!ParseFragment(content, nContent, iPos, fragment) || (bNeedsElement && fragment.nCount == 0))
        return 0;
    KeldMBString endTag;
    if (empty)
        endTag.Append("</").Append(TagName(iPos)).Append(">");
    const KeldMBString text = empty ? KeldMBString('>') + content + endTag : content;
    if (!DocChange(nLeft, nReplace, text)) {
        ReleasePos(fragment.iFirst);
        return 0;
    }
    const int nShift = text.GetLength() - nReplace;
    ReleaseChildren(iPos);
    ElementPos& pos = Pos(iPos);
    pos.iElemChild = fragment.iFirst;
    pos.iElemLast = fragment.iLast;
    if (empty) {
        pos.nStartR = nLeft;
        pos.nEndL = nContent + content.GetLength();
        pos.nEndR = pos.nEndL + endTag.GetLength() - 1;
    } else {
        pos.nEndL += nShift;
        pos.nEndR += nShift;
    }
    Adjust(iPos, nShift, 1);
    return 1;
}

int QzMarkup::RemoveElem(int iPos) {
    const int iPosBefore = PreviousSibling(iPos);
    const ElementPos& pos = Pos(iPos);
    int nLeft = Clip(pos.nStartL);
    int nRight = Clip(pos.nEndR + 1); // the first byte that stays
    const std::string_view doc = m_strDoc.View();
    const auto before = [&](int n) { return n > 0 ? doc[static_cast<std::size_t>(n) - 1] : '\n'; };
    int nLine = nLeft;
    while (before(nLine) == ' ' || before(nLine) == '\t')
        --nLine;
    const int nNextLine = SkipLineEnd(nRight);
    if (nNextLine != nRight && before(nLine) == '\n') { // alone on its line
        nLeft = nLine;
        nRight = nNextLine;
    }
    DocChange(nLeft, nRight - nLeft, KeldMBString());

    const int iPosParent = pos.iElemParent;
    (iPosBefore != 0 ? Pos(iPosBefore).iElemNext : Pos(iPosParent).iElemChild) = pos.iElemNext;
    if (Pos(iPosParent).iElemLast == iPos)
        Pos(iPosParent).iElemLast = iPosBefore;
    Adjust(iPos, nLeft - nRight, 1);
    Pos(iPos).iElemNext = 0;
    ReleasePos(iPos);
    ForgetReleasedPositions();
    if (iPosParent == 0) { // what stood behind the top element may hold another
        KeldMBString kept = m_strError;
        m_mapSavedPos.RemoveAll();
        ParseTree();
        m_strError = std::move(kept);
    }
    return iPosBefore;
}

int QzMarkup::LocateNew(int iPosParent, int iPosRel, unsigned char bInsert) const {
    if (iPosRel != 0)
        return bInsert ? Pos(iPosRel).nStartL : SkipLineEnd(Pos(iPosRel).nEndR + 1);
    return bInsert ? SkipLineEnd(Pos(iPosParent).nStartR + 1) : Pos(iPosParent).nEndL;
}

int QzMarkup::SkipLineEnd(int nOffset) const {
    const char* const start = m_strDoc.Cstr() + Clip(nOffset);
    const char* p = start;
    while (*p == ' ' || *p == '\t')
        ++p;
    if (*p == '\r' && p[1] == '\n')
        ++p;
    return *p == '\n' ? static_cast<int>(p + 1 - m_strDoc.Cstr()) : Clip(nOffset);
}

int QzMarkup::TagBodyEnd(int iPos) const {
    const int nFirst = Clip(Pos(iPos).nStartL + 1);
    int nEnd = Clip(Pos(iPos).nStartR);
    const std::string_view doc = m_strDoc.View();
    // An empty element's slash may follow other slashes, which must not stay behind to end an opened tag.
    const bool empty = IsEmptyElement(iPos);
    const auto isFiller = [empty](char c) { return Is(c, Blank) || (empty && c == '/'); };
    while (nEnd > nFirst && isFiller(doc[static_cast<std::size_t>(nEnd) - 1]))
        --nEnd;
    return nEnd;
}

int QzMarkup::PreviousSibling(int iPos) const {
    int iPrevious = 0;
    for (int i = Pos(Pos(iPos).iElemParent).iElemChild; i != 0 && i != iPos; i = Pos(i).iElemNext)
        iPrevious = i;
    return iPrevious;
}

unsigned char QzMarkup::DocChange(int nLeft, int nReplace, const KeldMBString& strInsert) {
    const std::int64_t length = std::int64_t{m_strDoc.GetLength()} - nReplace + strInsert.GetLength();
    if (length > KeldMBString::MaxLength)
        return 0;
    m_strDoc.Replace(nLeft, nReplace, strInsert.View());
    ForgetAttributes();
    return 1;
}

void QzMarkup::Adjust(int iPos, int nShift, unsigned char bAfterPos) {
    if (nShift == 0)
        return;
    ShiftSubtrees(bAfterPos ? Pos(iPos).iElemNext : iPos, nShift);
    for (int i = Pos(iPos).iElemParent; i != 0; i = Pos(i).iElemParent) {
        Pos(i).nEndL += nShift;
        Pos(i).nEndR += nShift;
        ShiftSubtrees(Pos(i).iElemNext, nShift);
    }
}

// Moves an element, its next siblings and all that is in them.
void QzMarkup::ShiftSubtrees(int iFirst, int nShift) {
    if (iFirst == 0)
        return;
    const int iStop = Pos(iFirst).iElemParent;
    int i = iFirst;
    while (i != iStop) {
        ElementPos& pos = Pos(i);
        pos.nStartL += nShift;
        pos.nStartR += nShift;
        pos.nEndL += nShift;
        pos.nEndR += nShift;
        if (pos.iElemChild != 0) {
            i = pos.iElemChild;
            continue;
        }
        while (i != iStop && Pos(i).iElemNext == 0)
            i = Pos(i).iElemParent;
        if (i != iStop)
            i = Pos(i).iElemNext;
    }
}

void QzMarkup::ReleaseChildren(int iPos) {
    if (Pos(iPos).iElemChild == 0)
        return;
    ReleasePos(Pos(iPos).iElemChild);
    ForgetReleasedPositions();
    if (IsReleased(m_iPosChild))
        m_iPosChild = 0;
}

void QzMarkup::ForgetReleasedPositions() {
    KeldArray<KeldMBString> forgotten;
    for (const auto& [name, saved] : m_mapSavedPos) {
        if (IsReleased(saved.iPosParent) || IsReleased(saved.iPos) || IsReleased(saved.iPosChild))
            forgotten.Add(name);
    }
    for (const KeldMBString& name : forgotten)
        m_mapSavedPos.RemoveKey(name);
}

} // namespace Qzc
