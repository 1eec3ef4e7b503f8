#pragma once

#include <array>
#include <map>
#include <string>
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
            const ElementPos& pos = Pos(i);
            rows.push_back(
                {pos.nStartL, pos.nStartR, pos.nEndL, pos.nEndR, rowOf[pos.iElemParent], pos.iElemLast});
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
};

using AttributeList = std::vector<std::pair<std::string, std::string>>;

inline AttributeList Attributes(const Qzc::QzMarkup& markup, bool ofChild) {
    AttributeList list;
    const int count = ofChild ? markup.GetChildAttribCount() : markup.GetAttribCount();
    for (int i = 0; i < count; ++i) {
        const Qzc::KeldMBString name = ofChild ? markup.GetChildAttribName(i) : markup.GetAttribName(i);
        list.emplace_back(
            name.Cstr(),
            (ofChild ? markup.GetChildAttrib(name.Cstr()) : markup.GetAttrib(name.Cstr())).Cstr());
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

/// Moves or edits a document in one of all possible ways, as the numbers say that `next(n)` draws below n,
/// and holds the outcome against what the operation promises. The broken promise; empty when all is well.
template <class Next>
std::string RandomStep(CheckedMarkup& markup, Next next) {
    static const char* const Names[] = {
        "a", "b",   "x:y", "n-1.", "\xC3\xA9", "\x95\\", // refused from here on
        "",  "a b", "x=",  "<",    "q\"",      "e&",     nullptr};
    static const char* const Texts[] = {"",      "t",          "two\r\nlines", "<&>'\"", "&amp;&#65;",
                                        "a]]>b", "]]>",        "\x95\\",       " / ",    "=",
                                        nullptr, "<![CDATA[x", "a\"b",         "-->",    "?>"};
    static const char* const Pieces[] = {
        "<a>",     "</a>",      "<b/>",  "<b x='1'>", "</b>",    "<",    ">",         "/",      "<!--",
        "-->",     "<![CDATA[", "]]>",   "<?",        "?>",      "<!d",  "[",         "]",      "\"",
        "'",       "=",         " ",     "\r\n",      "text",    "&lt;", "\x95",      "\\",     "\n  ",
        "y=\">\"", "x",         "<c//>", "<c / />",   "<c z= >", "</c>", "<?xml v?>", "<a y=/>"};
    const auto markupText = [&] {
        std::string text;
        for (auto count = next(7); count != 0; --count)
            text += Pieces[next(sizeof(Pieces) / sizeof(*Pieces))];
        return text;
    };
    const char* const name = Names[next(sizeof(Names) / sizeof(*Names))];
    const char* const text = Texts[next(sizeof(Texts) / sizeof(*Texts))];
    const std::string data = text != nullptr ? text : "";
    const std::string place = std::string(next(2) != 0 ? "p" : "q");

    const std::string doc = markup.GetDoc().Cstr();
    const Qzc::KeldMBString main = markup.GetSubDoc();
    const Qzc::KeldMBString child = markup.GetChildSubDoc();
    const auto kept = [&] {
        return markup.GetDoc() == doc.c_str() && markup.GetSubDoc() == main &&
               markup.GetChildSubDoc() == child;
    };
    const auto added = [&](bool done, bool ofChild) -> std::string {
        if (!done)
            return kept() ? "" : "a refused element left a trace";
        const bool holds = ofChild ? markup.GetChildTagName() == name && markup.GetChildData() == text
                                   : markup.GetTagName() == name && markup.GetData() == text;
        return holds ? "" : "an added element does not read back";
    };
    const auto addedMarkup = [&](bool done, bool ofChild) -> std::string {
        if (!done)
            return kept() ? "" : "refused markup left a trace";
        return !(ofChild ? markup.GetChildTagName() : markup.GetTagName()).IsEmpty()
                   ? ""
                   : "added markup is no position";
    };
    const auto attributeSet = [&](bool ofChild) -> std::string {
        AttributeList expected = Attributes(markup, ofChild);
        const bool done = ofChild ? markup.SetChildAttrib(name, text) : markup.SetAttrib(name, text);
        if (!done)
            return kept() ? "" : "a refused attribute left a trace";
        bool replaced = false;
        for (auto& [attribute, value] : expected) { // a name that stands twice is read as the first
            if (attribute == name) {
                value = data;
                replaced = true;
            }
        }
        if (!replaced)
            expected.emplace_back(name, data);
        return Attributes(markup, ofChild) == expected ? "" : "a set attribute does not read back";
    };
    const auto dataSet = [&](bool done, bool ofChild) -> std::string {
        if (!done)
            return kept() ? "" : "refused data left a trace";
        return (ofChild ? markup.GetChildData() : markup.GetData()) == text ? ""
                                                                            : "set data do not read back";
    };
    const auto moved = [&](bool) -> std::string {
        return markup.GetDoc() == doc.c_str() ? "" : "a move changed the text";
    };

    switch (next(27)) {
    case 0: return added(markup.AddElem(name, text), false);
    case 1: return added(markup.InsertElem(name, text), false);
    case 2: return added(markup.AddChildElem(name, text), true);
    case 3: return added(markup.InsertChildElem(name, text), true);
    case 4: return addedMarkup(markup.AddSubDoc(markupText().c_str()), false);
    case 5: return addedMarkup(markup.InsertSubDoc(markupText().c_str()), false);
    case 6: return addedMarkup(markup.AddChildSubDoc(markupText().c_str()), true);
    case 7: return addedMarkup(markup.InsertChildSubDoc(markupText().c_str()), true);
    case 8:
    case 9: return attributeSet(false);
    case 10:
    case 11: return attributeSet(true);
    case 12: return dataSet(markup.SetData(text, static_cast<int>(next(2))), false);
    case 13: return dataSet(markup.SetChildData(text, static_cast<int>(next(2))), true);
    case 14:
        if (markup.SetRealData(markupText().c_str()))
            return markup.GetChildTagName().IsEmpty() || markup.GetChildSubDoc() == child ? ""
                                                                                          : "a lost child";
        return kept() ? "" : "refused content left a trace";
    case 15: return markup.RemoveElem() || kept() ? "" : "a refused removal left a trace";
    case 16: return markup.RemoveChildElem() || kept() ? "" : "a refused removal left a trace";
    case 17: markup.SavePos(place.c_str()); return moved(true);
    case 18: return moved(markup.RestorePos(place.c_str()));
    case 19: markup.ResetPos(); return moved(true);
    case 20: markup.ResetMainPos(); return moved(true);
    case 21: markup.ResetChildPos(); return moved(true);
    case 22: return moved(markup.OutOfElem());
    case 23: return moved(markup.IntoElem());
    case 24: return moved(markup.FindChildElem(next(4) == 0 ? name : nullptr));
    default: return moved(markup.FindElem(next(4) == 0 ? name : nullptr));
    }
}
