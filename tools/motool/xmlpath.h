#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "toolkit/qzmarkup.h"

namespace Motool {

/// A path from the top element down: names with a slash between them, "*" for any; "[2]" behind one is the second of
/// its name in its parent; "@name" at the end is an attribute. "map/layer[2]/@name"
struct XmlPath {
    struct Step {
        std::string name;
        int number = 0; ///< 0: all
    };
    std::vector<Step> elements;
    std::string attribute; ///< empty: the elements themselves

    /// False when the text is no path; `error` tells why.
    static bool Parse(std::string_view text, XmlPath& path, std::string& error);
};

/// Calls `visit` with each element that the first `steps` of the path lead to as the document's main element; false
/// ends it. Elements may be removed by it. The document's position is then its start. How many there were.
int VisitElements(Qzc::QzMarkup& markup, const XmlPath& path, std::size_t steps,
                  const std::function<bool(Qzc::QzMarkup&)>& visit);

} // namespace Motool
