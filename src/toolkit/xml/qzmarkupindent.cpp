// A document laid out for people.

#include "toolkit/qzmarkup.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "toolkit/xml/qzmarkupinline.h"
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
    const char* gap = doc + StartR(iPos) + 1;
    const auto isLayout = [&](int nEnd) { return VisitNodes(gap, doc + nEnd, [](std::string_view) {}); };
    for (int i = Pos(iPos).iElemChild; i != 0; i = Pos(i).iElemNext) {
        if (!isLayout(StartL(i)))
            return false;
        gap = doc + EndR(i) + 1;
    }
    return isLayout(EndL(iPos));
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
        lines.Add(depth, std::string_view(doc + nLeft, static_cast<std::size_t>(nRight + 1 - nLeft)));
        gap = nRight + 1;
    };
    int i = iTop;
    if (!addNodes(StartL(iTop))) { // text that belongs to no element: a mark, say
        lines = Lines();
        addRange(0, StartL(iTop) - 1);
    }
    for (;;) {
        if (i != iTop)
            addNodes(StartL(i));
        if (CanBeIndented(i)) {
            addRange(StartL(i), StartR(i));
            ++depth;
            i = Pos(i).iElemChild;
            continue;
        }
        addRange(StartL(i), EndR(i));
        while (i != iTop && Pos(i).iElemNext == 0) {
            i = Pos(i).iElemParent;
            addNodes(EndL(i));
            --depth;
            addRange(EndL(i), EndR(i));
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
