#pragma once

#include <algorithm>
#include <iterator>
#include <string>

#include "../tests/xml/markup_records.h"

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

// By whether it is the child, and whether it is inserted.
constexpr unsigned char (Qzc::QzMarkup::*Adds[2][2])(const char*, const char*) = {
    {&Qzc::QzMarkup::AddElem, &Qzc::QzMarkup::InsertElem},
    {&Qzc::QzMarkup::AddChildElem, &Qzc::QzMarkup::InsertChildElem}};
constexpr unsigned char (Qzc::QzMarkup::*AddSubDocs[2][2])(const char*) = {
    {&Qzc::QzMarkup::AddSubDoc, &Qzc::QzMarkup::InsertSubDoc},
    {&Qzc::QzMarkup::AddChildSubDoc, &Qzc::QzMarkup::InsertChildSubDoc}};

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
    case 0:
    case 1:
    case 2:
    case 3: done = (markup.*Adds[ofChild][step / 2])(name, text); break;
    case 4:
    case 5:
    case 6:
    case 7: done = (markup.*AddSubDocs[ofChild][step / 2 - 2])(fragment.c_str()); break;
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
