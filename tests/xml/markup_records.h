#pragma once

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "toolkit/qzmarkup.h"

/// A document that shows its records.
class CheckedMarkup : public Qzc::QzMarkup {
public:
    using QzMarkup::QzMarkup;

    /// The records in the order of the text: their four offsets, then parent and last child as row numbers.
    std::vector<std::array<int, 6>> Rows() const {
        std::vector<std::array<int, 6>> rows;
        std::map<int, int> rowOf{{0, 0}};
        for (int i = Pos(0).iElemChild; i != 0;) {
            const ElementPos pos = GetElementPos(i);
            rows.push_back({pos.nStartL, pos.nStartR, pos.nEndL, pos.nEndR, rowOf[pos.iElemParent], pos.iElemLast});
            rowOf[i] = static_cast<int>(rows.size());
            if (pos.iElemChild != 0) {
                i = pos.iElemChild;
                continue;
            }
            while (i != 0 && Pos(i).iElemNext == 0)
                i = Pos(i).iElemParent;
            i = i != 0 ? Pos(i).iElemNext : 0;
        }
        for (auto& row : rows)
            row[5] = rowOf[row[5]];
        return rows;
    }
    bool RecordsMatchText() const { return Rows() == CheckedMarkup(GetDoc().Cstr()).Rows(); }

    /// Whether the element's markup stands at the line and the column that are told of it.
    bool PositionMatchesText(bool ofChild) const {
        int line = 0;
        int column = 0;
        if (!(ofChild ? GetChildElemPosition(line, column) : GetElemPosition(line, column)))
            return (ofChild ? GetChildTagName() : GetTagName()).IsEmpty();
        const Qzc::KeldMBString markup = ofChild ? GetChildSubDoc() : GetSubDoc();
        std::string_view rest = GetDoc().View();
        for (; line > 1; --line)
            rest.remove_prefix(std::min(rest.find('\n'), rest.size() - 1) + 1);
        const std::size_t before = std::min(static_cast<std::size_t>(column - 1), rest.size());
        return rest.find('\n') >= before && rest.compare(before, markup.View().size(), markup.View()) == 0;
    }
};

using AttributeList = std::vector<std::pair<std::string, std::string>>;

inline AttributeList Attributes(const Qzc::QzMarkup& markup, bool ofChild) {
    AttributeList list;
    const int count = ofChild ? markup.GetChildAttribCount() : markup.GetAttribCount();
    for (int i = 0; i < count; ++i) {
        const std::string name((ofChild ? markup.GetChildAttribName(i) : markup.GetAttribName(i)).View());
        const char* const key = name.c_str();
        list.emplace_back(name, (ofChild ? markup.GetChildAttrib(key) : markup.GetAttrib(key)).View());
    }
    return list;
}

/// Reads every name, text and attribute below the top element; the number of elements.
inline int WalkAll(Qzc::QzMarkup& markup) {
    int count = 0;
    int depth = 0;
    markup.ResetPos();
    for (;;) {
        if (markup.FindElem()) {
            ++count;
            markup.GetTagName();
            markup.GetData();
            Attributes(markup, false);
            markup.IntoElem();
            ++depth;
        } else if (depth-- == 0 || !markup.OutOfElem()) {
            return count;
        }
    }
}

/// An element with all that is in it, read through ranges. Blanks between elements count unless they are `layout`.
inline std::string Content(Qzc::QzMarkup::Element element, bool layout = false) {
    std::string data(element.GetDataView());
    if (layout && !element.Children().empty() && data.find_first_not_of(" \t\r\n") == std::string::npos)
        data.clear();
    std::string content = "<" + std::string(element.GetTagName().View()) + ">" + data;
    for (const auto& attribute : element.Attributes())
        content.append(" ").append(attribute.GetNameView()).append("=").append(attribute.GetValueView());
    for (const Qzc::QzMarkup::Element child : element.Children())
        content += Content(child, layout);
    return content + "/";
}

/// Moves or edits a document in one of all possible ways, as the numbers say that `next(n)` draws below n,
/// and holds the outcome against what the operation promises. What is broken; empty when all is well.
template <class Next>
std::string RandomStep(CheckedMarkup& markup, Next next) {
    static const char* const Names[] = {"a", "b",   "x:y", "n-1.", "\xC3\xA9", "\x95\\", // the rest are none
                                        "",  "a b", "x=",  "<",    "q\"",      "e&",     nullptr};
    static const char* const Texts[] = {"",   "t", "two\r\nlines", "<&>'\"", "&amp;&#65;", "a]]>b",     "]]>", "\x95\\",
                                        " /", "=", nullptr,        "a\"b",   "-->",        "<![CDATA[", "?>"};
    static const char* const Pieces[] = {
        "<a>", "</a>", "<b/>", "<b x='1'>", "</b>", "<",       ">",  "/",     "<!--",    "-->",     "<![CDATA[",
        "]]>", "<?",   "?>",   "<!d",       "[",    "]",       "\"", "'",     "=",       " ",       "\r\n",
        "t",   "&lt;", "\x95", "\\",        "\n  ", "y=\">\"", "x",  "<c//>", "<c / />", "<c z= >", "<?xml v?>"};
    const auto pick = [&](const auto& table) { return table[next(static_cast<unsigned>(std::size(table)))]; };
    const auto step = static_cast<unsigned>(next(27));
    const bool ofChild = step % 2 == 1;
    const char* const name = pick(Names);
    const char* const text = pick(Texts);
    std::string fragment;
    for (auto count = next(7); count != 0; --count)
        fragment += pick(Pieces);
    const char* const place = next(2) != 0 ? "p" : "q";
    const char* const wanted = next(4) == 0 ? name : nullptr;

    const Qzc::KeldMBString doc = markup.GetDoc();
    const Qzc::KeldMBString main = markup.GetSubDoc();
    const Qzc::KeldMBString child = markup.GetChildSubDoc();
    AttributeList attributes = Attributes(markup, ofChild);
    const AttributeList::value_type written(name != nullptr ? name : "", text != nullptr ? text : "");
    if (std::none_of(attributes.begin(), attributes.end(),
                     [&](const auto& attribute) { return attribute.first == written.first; }))
        attributes.push_back(written);
    for (auto& attribute : attributes) { // one that stands twice reads as the first
        if (attribute.first == written.first)
            attribute = written;
    }

    bool done = false;
    switch (step) {
    case 0: done = markup.AddElem(name, text); break;
    case 1: done = markup.AddChildElem(name, text); break;
    case 2: done = markup.InsertElem(name, text); break;
    case 3: done = markup.InsertChildElem(name, text); break;
    case 4: done = markup.AddSubDoc(fragment.c_str()); break;
    case 5: done = markup.AddChildSubDoc(fragment.c_str()); break;
    case 6: done = markup.InsertSubDoc(fragment.c_str()); break;
    case 7: done = markup.InsertChildSubDoc(fragment.c_str()); break;
    case 8: done = markup.SetAttrib(name, text); break;
    case 9: done = markup.SetChildAttrib(name, text); break;
    case 10: done = markup.SetData(text, wanted != nullptr); break;
    case 11: done = markup.SetChildData(text, wanted != nullptr); break;
    case 12: done = markup.RemoveElem(); break;
    case 13: done = markup.RemoveChildElem(); break;
    case 14: done = markup.SetRealData(fragment.c_str()); break;
    case 15: markup.SavePos(place); break;
    case 16: markup.RestorePos(place); break;
    case 17: markup.ResetPos(); break;
    case 18: markup.ResetMainPos(); break;
    case 19: markup.ResetChildPos(); break;
    case 20: markup.OutOfElem(); break;
    case 21: markup.IntoElem(); break;
    case 22: markup.FindChildElem(wanted); break;
    default: markup.FindElem(wanted); break;
    }
    if (!markup.PositionMatchesText(false) || !markup.PositionMatchesText(true))
        return "an element is not where it is said to be";
    if (!done) {
        const bool kept = step > 14 || (markup.GetSubDoc() == main && markup.GetChildSubDoc() == child);
        return kept && markup.GetDoc() == doc ? "" : "a refused step left a trace";
    }
    const Qzc::KeldMBString tag = ofChild ? markup.GetChildTagName() : markup.GetTagName();
    const Qzc::KeldMBString data = ofChild ? markup.GetChildData() : markup.GetData();
    const bool holds = step < 4    ? tag == name && data == text
                       : step < 8  ? !tag.IsEmpty()
                       : step < 10 ? Attributes(markup, ofChild) == attributes
                                   : step > 11 || data == text;
    return holds ? "" : "step " + std::to_string(step) + " does not read back";
}
