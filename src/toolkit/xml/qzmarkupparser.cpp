// QzMarkup's parsing: from text to records.

#include <algorithm>
#include <cstring>

#include "stream/qzsprintf.h"
#include "toolkit/qzmarkup.h"
#include "toolkit/xml/qzmarkupinline.h"
#include "toolkit/xml/qzmarkupscan.h"

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
int QzMarkup::ParseElem(const KeldMBString& text, int& nNext, int nBase, int iPosParent) {
    const char* const szDoc = text.Cstr();
    StopFinder stop(szDoc + nNext, szDoc + text.GetLength());
    const auto offset = [=](const char* p) { return static_cast<int>(p - szDoc) + nBase; };
    const auto nameOf = [=](int iPos) { return SkipBlanks(szDoc + (Pos(iPos).nStartL - nBase) + 1); };
    int iTop = 0;
    int iOpen = iPosParent;         // the innermost element whose end tag is still to come
    const char* openName = nullptr; // its name, where that has been looked up
    const auto fail = [&](const char* szError, bool withName, int nErrorAt) {
        m_nErrorAt = nErrorAt;
        KeldMBString name;
        if (withName) {
            const char* const start = nameOf(iOpen);
            name = KeldMBString(std::string_view(start, static_cast<std::size_t>(SkipName(start) - start)));
        }
        if (iTop != 0)
            ReleasePos(iTop);
        return ParseError(szError, withName ? name.Cstr() : nullptr);
    };

    // The innermost element; true when that was the first.
    const auto close = [&](const char* first, const char* last) {
        ElementPos& closed = Pos(iOpen);
        closed.nEndL = offset(first);
        closed.nEndR = offset(last);
        const bool isTop = iOpen == iTop;
        iOpen = closed.iElemParent;
        openName = nullptr;
        return isTop;
    };

    const char* p = szDoc + nNext;
    for (;;) {
        p = stop.NextTag(p);
        if (*p == '\0')
            return iTop == 0 ? fail("Element tag not found", false, offset(p))
                             : fail("End tag of %s element not found", true, Pos(iOpen).nStartL);

        // ---- What stands at this '<'?
        const char* const tag = p;
        const char* name = p + 1;
        if (*name == '/' && iTop != 0) { // as nearly all end tags are
            if (openName == nullptr)
                openName = nameOf(iOpen);
            const std::size_t length = SameNameLength(name + 1, openName, szDoc + text.GetLength());
            if (length != 0) {
                p = name + 1 + length + 1;
                if (close(tag, p - 1))
                    break;
                continue;
            }
        }
        if (Is(*name, Delimiter | Quote)) {
            if (*name == '!' || *name == '?') {
                TokenPos node(szDoc, static_cast<int>(p - szDoc));
                if (ParseNode(node) == NodeInvalid)
                    return fail("Invalid node", false, offset(tag));
                p = szDoc + node.nNext;
                continue;
            }
            name = SkipBlanks(name);
            if (Is(*name, Quote))
                return fail("Tag starts with quote", false, offset(tag));
            if (*name == '\0')
                return iTop == 0 ? fail("Abrupt end within tag", false, offset(tag))
                                 : fail("End tag not completed for element %s", true, offset(tag));
            if (Is(*name, Delimiter)) {
                if (iTop == 0)
                    return fail("Invalid node", false, offset(tag));
                if (*name != '/')
                    return fail("Expecting end tag of element %s", true, offset(tag));

                // ---- An end tag
                name = SkipBlanks(name + 1);
                if (*name == '\0')
                    return fail("End tag not completed for element %s", true, offset(tag));
                const char* const opened = nameOf(iOpen);
                std::size_t length = 0;
                do {
                    while (name[length] == opened[length] && !Is(name[length], Delimiter))
                        ++length;
                } while (name[length] == '\\' && opened[length] == '\\' && IsSecondByte(name, name + length) &&
                         ++length != 0);
                if (!EndsName(name, name + length) || !EndsName(opened, opened + length))
                    return fail("End tag does not correspond to %s", true, offset(tag));
                p = SkipBlanks(name + length);
                if (*p != '>')
                    return fail("End tag not completed for element %s", true, offset(tag));
                ++p;
                if (close(tag, p - 1))
                    break;
                continue;
            }
        }

        // ---- A start tag
        const char* unquoted = nullptr; // behind the last closing quote
        for (p = stop.FirstInTag(name + 1); *p != '>'; p = stop.NextInTag()) {
            const char quote = *p;
            // A quote inside a token is just a byte of it.
            const bool opens = quote != '\0' && (p[-1] == '=' || p == unquoted || EndsName(name, p - 1));
            if (opens) {
                do
                    p = stop.NextInTag();
                while (*p != quote && *p != '\0');
                unquoted = p + 1;
            }
            if (*p == '\0')
                return fail("End of tag not found", false, offset(tag));
        }
        const int iPos = m_iPosReleased == 0 && m_iPosFree < m_nPosCapacity ? m_iPosFree++ : GetFreePos();
        if (iPos == 0)
            return fail("Out of memory", false, offset(tag));
        const bool empty = p[-1] == '/';
        const int nStartL = offset(tag);
        const int nStartR = offset(p);
        Pos(iPos) = ElementPos{nStartL, nStartR, nStartL, nStartR, 0, iOpen, 0, 0};
        ++p;
        if (iTop == 0) {
            iTop = iPos;
        } else {
            ElementPos& open = Pos(iOpen);
            (open.iElemLast != 0 ? Pos(open.iElemLast).iElemNext : open.iElemChild) = iPos;
            open.iElemLast = iPos;
        }
        if (!empty) {
            iOpen = iPos;
            openName = name;
        } else if (iTop == iPos) {
            break;
        }
    }
    nNext = static_cast<int>(p - szDoc);
    return iTop;
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
