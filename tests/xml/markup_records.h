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
