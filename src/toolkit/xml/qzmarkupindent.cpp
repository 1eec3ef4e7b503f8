// A document laid out for people.

#include "toolkit/qzmarkup.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "toolkit/xml/qzmarkupscan.h"

namespace Qzc {

using namespace MarkupScan;

namespace {

// Deeper nesting is not indented further, or the blanks would outgrow the rest.
constexpr int MaxIndent = 16;

// The text that is laid out, an item a line.
class Lines {
public:
    void Add(int depth, std::string_view item) {
        item = item.substr(0, item.find_last_not_of(" \t\r\n") + 1); // of what is no node, for those end in none
        m_text.append(static_cast<std::size_t>(std::min(depth, MaxIndent)), '\t').append(item).append("\r\n");
    }
    std::string Take() { return std::move(m_text); }

private:
    std::string m_text;
};

// Hands each comment, instruction and declaration between two elements to `visit`. False at character data, which
// has no place of its own: laying it out would change it.
template <class Visit>
bool VisitNodes(const char* p, const char* end, Visit visit) {
    while ((p = SkipBlanks(p)) < end) {
        const char* behind = nullptr;
        if (std::strncmp(p, "<?", 2) == 0)
            behind = SkipInstruction(p);
        else if (std::strncmp(p, "<!--", 4) == 0)
            behind = SkipComment(p);
        else if (std::strncmp(p, "<!", 2) == 0 && p[2] != '[')
            behind = SkipDeclaration(p);
        if (behind == nullptr)
            return false;
        visit(std::string_view(p, static_cast<std::size_t>(behind - p)));
        p = behind;
    }
    return true;
}

} // namespace

// Whether the element holds elements, and between them nothing whose blanks could matter.
bool QzMarkup::CanBeIndented(int iPos) const {
    if (Pos(iPos).iElemChild == 0 || GetAttrib(iPos, "xml:space") == "preserve")
        return false;
    const char* const doc = GetDoc().Cstr();
    const char* gap = doc + Pos(iPos).nStartR + 1;
    const auto isLayout = [&](int nEnd) { return VisitNodes(gap, doc + nEnd, [](std::string_view) {}); };
    for (int i = Pos(iPos).iElemChild; i != 0; i = Pos(i).iElemNext) {
        if (!isLayout(Pos(i).nStartL))
            return false;
        gap = doc + Pos(i).nEndR + 1;
    }
    return isLayout(Pos(iPos).nEndL);
}

bool QzMarkup::SetIndented(KeldMBString text) {
    m_strError.Empty();
    SetText(std::move(text));
    if (!ParseTree())
        return false;
    const char* const doc = GetDoc().Cstr();
    Lines lines;
    const int iTop = Pos(0).iElemChild;
    int depth = 0;
    int gap = 0; // behind what has been laid out
    const auto addNodes = [&](int nEnd) {
        return VisitNodes(doc + gap, doc + nEnd, [&](std::string_view node) { lines.Add(depth, node); });
    };
    const auto addRange = [&](int nLeft, int nRight) {
        lines.Add(depth, Range(nLeft, nRight));
        gap = nRight + 1;
    };
    int i = iTop;
    if (!addNodes(Pos(iTop).nStartL)) { // text that belongs to no element: a mark, say
        lines = Lines();
        addRange(0, Pos(iTop).nStartL - 1);
    }
    for (;;) {
        const ElementPos& pos = Pos(i);
        if (i != iTop)
            addNodes(pos.nStartL);
        if (CanBeIndented(i)) {
            addRange(pos.nStartL, pos.nStartR);
            ++depth;
            i = pos.iElemChild;
            continue;
        }
        addRange(pos.nStartL, pos.nEndR);
        while (i != iTop && Pos(i).iElemNext == 0) {
            i = Pos(i).iElemParent;
            addNodes(Pos(i).nEndL);
            --depth;
            addRange(Pos(i).nEndL, Pos(i).nEndR);
        }
        if (i == iTop)
            break;
        i = Pos(i).iElemNext;
    }
    std::string_view rest = GetDoc().View().substr(static_cast<std::size_t>(gap));
    rest.remove_prefix(std::min(rest.find_first_not_of(" \t\r\n"), rest.size()));
    if (!rest.empty())
        lines.Add(0, rest);
    SetText(KeldMBString(lines.Take()));
    return true;
}

} // namespace Qzc
