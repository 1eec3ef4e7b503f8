// QzMarkup's parsing: from text to records.

#include <algorithm>
#include <cstring>
#include <utility>

#include "stream/qzsprintf.h"
#include "toolkit/qzmarkup.h"
#include "toolkit/xml/bits.h"
#include "toolkit/xml/qzmarkupinline.h"
#include "toolkit/xml/qzmarkupscan.h"
#include "toolkit/xml/qzmarkupstops.h"

namespace Qzc {

using namespace MarkupScan;

namespace {

// In a large text, from its start, and a few more: growing the records later would copy them.
int EstimateElements(std::string_view text) {
    constexpr std::size_t Sample = 4096;
    if (text.size() < 32 * Sample)
        return 0;
    std::size_t tags = 0;
    for (std::size_t at = 0; at < Sample; ++at)
        tags += text[at] == '<' && text[at + 1] != '/' ? 1U : 0U;
    return static_cast<int>(std::min((tags + tags / 8) * (text.size() / Sample), text.size() / 16));
}

} // namespace

unsigned char QzMarkup::ParseDoc() {
    KeldMBString kept = std::move(m_strError);
    m_strError.Empty();
    m_mapSavedPos.RemoveAll();
    SetPos(0, 0, 0);
    const bool wellFormed = ParseTree();
    if (m_strError.IsEmpty())
        m_strError = std::move(kept);
    else
        m_strError = std::move(kept) + ", " + m_strError;
    return wellFormed;
}

bool QzMarkup::ParseTree() {
    m_text->Close();
    m_fromEnd = Tag();
    m_previous.clear();
    m_releasedAt.clear();
    m_nErrorAt = -1;
    m_iPosFree = 1;
    m_iPosReleased = 0;
    const int wanted = std::max(m_text->GetLength() / 64, EstimateElements(m_text->Whole().View())) + 8;
    while (m_nPosCapacity < wanted && AllocPosArray(wanted)) {
    }
    if (m_nPosCapacity == 0)
        return false;
    Pos(0) = ElementPos{};
    if (m_text->GetLength() == 0)
        return false;
    const int iPos = ParseElem(0);
    if (iPos <= 0) {
        m_iPosFree = 1;
        m_iPosReleased = 0;
        return false;
    }
    Pos(0).iElemChild = Pos(0).iElemLast = iPos;
    return true;
}

int QzMarkup::ParseElem(int iPosParent) {
    int nNext = iPosParent == 0 ? 0 : m_text->Cut(StartR(iPosParent) + 1);
    return ParseElem(m_text->Whole(), nNext, 0, iPosParent);
}

// One pass over the text with the open elements kept in the records themselves (each knows its parent), so
// depth costs neither stack nor a list of its own. The element's own records are linked; the caller links the
// element.
//
// What the loop needs for each tag stands in local variables that nothing else refers to, so that they stay in
// registers.
int QzMarkup::ParseElem(const KeldMBString& text, int& nNext, int nBase, int iPosParent) {
    const char* const szDoc = text.Cstr();
    const char* const textEnd = szDoc + text.GetLength();
    StopFinder finder(szDoc, text.GetLength(), nNext);
    const StopFinder::Offset* next = nullptr; // the next stop and the end of those that are listed
    const StopFinder::Offset* nextEnd = nullptr;
    const auto nextStop = [&]() {
        if (MOTOOLKIT_SELDOM(next == nextEnd)) {
            const StopFinder::List list = finder.ListNext();
            next = list.first;
            nextEnd = list.end;
        }
        return *next++;
    };
    const auto skipTo = [&](const char* p) {
        const auto offset = static_cast<StopFinder::Offset>(p - szDoc);
        while (next != nextEnd && *next < offset)
            ++next;
        finder.SkipTo(offset);
    };
    const auto nameOf = [=](int nStartL) { return SkipBlanks(szDoc + (nStartL - nBase) + 1); };

    // Records never used before, in one segment and one after another.
    ElementPos* free = nullptr;
    int iFree = 0;
    int iFreeEnd = 0;

    int iTop = 0;
    int iOpen = iPosParent;         // the innermost element whose end tag is still to come
    ElementPos* open = nullptr;     // its record and
    const char* openName = nullptr; // its name, where they have been looked up
    int iLast = 0;                  // its last child
    int* link = &iTop;              // what leads to the next one
    const auto lookUpOpen = [&] {
        if (openName == nullptr) {
            open = &Pos(iOpen);
            openName = nameOf(open->nStartL);
        }
    };
    // The innermost element; true when that was the first.
    const auto close = [&](int tag, int tagEnd) {
        open->nEndL = tag + nBase;
        open->nEndR = tagEnd + nBase;
        open->iElemLast = iLast;
        iLast = iOpen;
        link = &open->iElemNext;
        iOpen = open->iElemParent;
        openName = nullptr;
        return iLast == iTop;
    };

    struct {
        const char* szText = nullptr;
        bool isNamed = false; // after the innermost element
    } error;
    StopFinder::Offset tag = 0;
    StopFinder::Offset at = 0;
    for (;;) {
        do
            tag = nextStop();
        while (szDoc[tag] != '<' && szDoc[tag] != '\0');
        if (szDoc[tag] == '\0') {
            error = {"Element tag not found", false};
            if (iTop != 0) {
                error = {"End tag of %s element not found", true};
                tag = Pos(iOpen).nStartL - nBase;
            }
            break;
        }

        // ---- What stands at this '<'?
        const char* name = szDoc + tag + 1;
        if (Is(*name, Delimiter | Quote)) {
            if (*name == '/' && iTop != 0) { // as nearly all end tags are
                lookUpOpen();
                at = nextStop();
                if (szDoc[at] == '>' && IsShortName(name + 1, szDoc + at, openName, textEnd)) {
                    if (close(tag, at))
                        break;
                    continue;
                }
            }
            if (*name == '!' || *name == '?') {
                TokenPos node(szDoc, tag);
                if (ParseNode(node) == NodeInvalid) {
                    error = {"Invalid node", false};
                    break;
                }
                skipTo(szDoc + node.nNext);
                continue;
            }
            name = SkipBlanks(name);
            if (Is(*name, Quote)) {
                error = {"Tag starts with quote", false};
                break;
            }
            if (*name == '\0') {
                error = {"Abrupt end within tag", false};
                if (iTop != 0)
                    error = {"End tag not completed for element %s", true};
                break;
            }
            if (Is(*name, Delimiter)) {
                if (iTop == 0) {
                    error = {"Invalid node", false};
                    break;
                }
                if (*name != '/') {
                    error = {"Expecting end tag of element %s", true};
                    break;
                }

                // ---- An end tag
                name = SkipBlanks(name + 1);
                if (*name == '\0') {
                    error = {"End tag not completed for element %s", true};
                    break;
                }
                lookUpOpen();
                std::size_t length = 0;
                do {
                    while (name[length] == openName[length] && !Is(name[length], Delimiter))
                        ++length;
                } while (name[length] == '\\' && openName[length] == '\\' && IsSecondByte(name, name + length) &&
                         ++length != 0);
                if (!EndsName(name, name + length) || !EndsName(openName, openName + length)) {
                    error = {"End tag does not correspond to %s", true};
                    break;
                }
                name = SkipBlanks(name + length);
                if (*name != '>') {
                    error = {"End tag not completed for element %s", true};
                    break;
                }
                at = static_cast<int>(name - szDoc);
                skipTo(name + 1);
                if (close(tag, at))
                    break;
                continue;
            }
        }

        // ---- A start tag
        int unquoted = -1; // behind the last closing quote
        for (at = nextStop(); szDoc[at] != '>'; at = nextStop()) {
            const char quote = szDoc[at];
            // A quote inside a token is just a byte of it.
            const bool opens = szDoc[at - 1] == '=' || at == unquoted || EndsName(name, szDoc + at - 1);
            if (opens && Is(quote, Quote)) {
                do
                    at = nextStop();
                while (szDoc[at] != quote && szDoc[at] != '\0');
                unquoted = at + 1;
            }
            if (szDoc[at] == '\0')
                break;
        }
        if (szDoc[at] == '\0') {
            error = {"End of tag not found", false};
            break;
        }
        if (iFree == iFreeEnd) {
            iFree = GetFreePos();
            if (iFree == 0) {
                error = {"Out of memory", false};
                break;
            }
            free = &Pos(iFree);
            iFreeEnd = iFree + 1;
            if (m_iPosReleased == 0 && iFreeEnd == m_iPosFree) // no other has been used of those behind it
                m_iPosFree = iFreeEnd = std::min(m_nPosCapacity, (iFree | (SegmentSize - 1)) + 1);
            open = &Pos(iOpen); // all may have moved
            if (iTop != 0)
                link = iLast != 0 ? &Pos(iLast).iElemNext : &open->iElemChild;
        }
        const int iPos = iFree++;
        ElementPos* const record = free++;
        const int nStartL = tag + nBase;
        const int nStartR = at + nBase;
        *record = ElementPos{nStartL, nStartR, nStartL, nStartR, 0, iOpen, 0, 0};
        *link = iPos;
        if (szDoc[at - 1] != '/') {
            link = &record->iElemChild;
            iOpen = iPos;
            open = record;
            openName = name;
            iLast = 0;
        } else if (iTop == iPos) {
            break;
        } else {
            link = &record->iElemNext;
            iLast = iPos;
        }
    }
    if (m_iPosFree == iFreeEnd)
        m_iPosFree = iFree;
    if (error.szText == nullptr) {
        nNext = at + 1;
        return iTop;
    }

    m_nErrorAt = tag + nBase;
    KeldMBString elementName;
    if (error.isNamed) {
        const char* const start = nameOf(Pos(iOpen).nStartL);
        elementName = KeldMBString(std::string_view(start, static_cast<std::size_t>(SkipName(start) - start)));
    }
    if (iTop != 0) // the open ones do not know their last child yet, and need not: nothing is linked behind it
        ReleasePos(iTop);
    return ParseError(error.szText, error.isNamed ? elementName.Cstr() : nullptr);
}

bool QzMarkup::ParseFragment(const KeldMBString& text, int nBase, int iPosParent, Fragment& fragment) {
    if (nBase > KeldMBString::MaxLength - text.GetLength())
        return false;
    const char* const szText = text.Cstr();
    TokenPos token(szText);
    while (FindChar(szText, token.nNext, '<')) {
        const int node = ParseNode(token);
        if (node != NodeElement && node != NodeInvalid)
            continue;
        // The error text tells of documents; a refused fragment leaves the document as it was.
        KeldMBString kept = m_strError;
        const int nKept = m_nErrorAt;
        const int iPos = node == NodeElement ? ParseElem(text, token.nNext, nBase, iPosParent) : -1;
        m_strError = std::move(kept);
        m_nErrorAt = nKept;
        if (iPos <= 0) {
            if (fragment.iFirst != 0)
                ReleasePos(fragment.iFirst);
            return false;
        }
        if (fragment.iFirst == 0)
            fragment.iFirst = iPos;
        else
            Pos(fragment.iLast).iElemNext = iPos;
        fragment.iLast = iPos;
        ++fragment.nCount;
    }
    return true;
}

int QzMarkup::ParseError(const char* szError, const char* szName) {
    if (szName != nullptr) {
        char buffer[300];
        Qzsprintf(buffer, sizeof(buffer), szError, szName);
        m_strError = buffer;
    } else {
        m_strError = szError;
    }
    return -1;
}

int QzMarkup::ParseNode(TokenPos& token) const {
    const char* const start = token.szDoc + token.nNext;
    if (*start != '<')
        return NodeInvalid;
    const auto stepOver = [&](const char* behind, int type) {
        if (behind == nullptr)
            return static_cast<int>(NodeInvalid);
        token.nL = token.nNext;
        token.nNext = static_cast<int>(behind - token.szDoc);
        token.nR = token.nNext - 1;
        return type;
    };
    if (start[1] == '?')
        return stepOver(SkipInstruction(start), NodeInstruction);
    if (start[1] != '!')
        return NodeElement;
    if (std::strncmp(start, "<!--", 4) == 0)
        return stepOver(SkipComment(start), NodeComment);
    if (std::strncmp(start, "<![CDATA[", 9) == 0)
        return stepOver(SkipCData(start), NodeCData);
    return stepOver(SkipDeclaration(start), NodeDeclaration);
}

bool QzMarkup::FindAny(const char* szDoc, int& nChar) {
    nChar = static_cast<int>(SkipBlanks(szDoc + nChar) - szDoc);
    return szDoc[nChar] != '\0';
}

bool QzMarkup::FindChar(const char* szDoc, int& nChar, char c) {
    nChar = static_cast<int>(SkipTo(szDoc + nChar, c) - szDoc);
    return szDoc[nChar] != '\0';
}

bool QzMarkup::FindToken(TokenPos& token) {
    if (!FindAny(token.szDoc, token.nNext))
        return false;
    const char* p = token.szDoc + token.nNext;
    token.bIsString = Is(*p, Quote);
    const char* behind = nullptr;
    if (token.bIsString) {
        behind = SkipTo(p + 1, *p);
        ++p;
        token.nNext = static_cast<int>(behind - token.szDoc) + (*behind != '\0' ? 1 : 0);
    } else {
        behind = Is(*p, Delimiter) ? p + 1 : SkipName(p);
        token.nNext = static_cast<int>(behind - token.szDoc);
    }
    token.nL = static_cast<int>(p - token.szDoc);
    token.nR = static_cast<int>(behind - token.szDoc) - 1;
    return true;
}

bool QzMarkup::FindAttrib(TokenPos& token, const char* szAttrib) const {
    const std::string_view wanted = szAttrib != nullptr ? szAttrib : "";
    const char* next = token.szDoc + token.nNext;
    TagAttribute attribute;
    bool found = false;
    while (!found && NextAnyAttribute(next, next, attribute))
        found = attribute.name == wanted;
    if (!found)
        return false;
    token.nNext = static_cast<int>(next - token.szDoc);
    token.nL = static_cast<int>(attribute.value.data() - token.szDoc);
    token.nR = token.nL + static_cast<int>(attribute.value.size()) - 1;
    token.bIsString = attribute.isQuoted;
    return true;
}

KeldMBString QzMarkup::GetToken(const TokenPos& token) const {
    return KeldMBString(token.szDoc + token.nL, token.nR - token.nL + 1);
}

} // namespace Qzc
