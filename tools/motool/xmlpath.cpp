#include "xmlpath.h"

#include <charconv>

using namespace Qzc;

namespace Motool {

namespace {

bool ParseStep(std::string_view text, XmlPath::Step& step) {
    const std::size_t bracket = text.rfind('[');
    if (bracket != std::string_view::npos && text.back() == ']') {
        const char* const first = text.data() + bracket + 1;
        const char* const last = text.data() + text.size() - 1;
        const auto result = std::from_chars(first, last, step.number);
        if (result.ec != std::errc() || result.ptr != last || step.number < 1)
            return false;
        text = text.substr(0, bracket);
    }
    step.name = std::string(text);
    return !text.empty() && text.find_first_of("[]@ \t\r\n") == std::string_view::npos;
}

} // namespace

bool XmlPath::Parse(std::string_view text, XmlPath& path, std::string& error) {
    path = XmlPath();
    if (!text.empty() && text.front() == '/')
        text.remove_prefix(1);
    while (!text.empty()) {
        const std::size_t slash = text.find('/');
        const std::string_view part = text.substr(0, slash);
        const bool isLast = slash == std::string_view::npos;
        if (isLast && part.size() > 1 && part.front() == '@') {
            path.attribute = std::string(part.substr(1));
            text = {};
            break;
        }
        Step step;
        if (!ParseStep(part, step)) {
            error = "\"" + std::string(part) + "\" is no element's name with a number in brackets, or none";
            return false;
        }
        path.elements.push_back(std::move(step));
        text = isLast ? std::string_view() : text.substr(slash + 1);
        if (!isLast && text.empty()) {
            error = "it ends with a slash";
            return false;
        }
    }
    if (path.elements.empty())
        error = "it names no element";
    return !path.elements.empty();
}

int VisitElements(QzMarkup& markup, const XmlPath& path, std::size_t steps,
                  const std::function<bool(QzMarkup&)>& visit) {
    int found = 0;
    std::vector<int> counts{0}; // for each level that the walk is in, the elements of the step's name so far
    markup.ResetPos();
    while (!counts.empty()) {
        const XmlPath::Step& step = path.elements[counts.size() - 1];
        int& count = counts.back();
        const bool isThere = (step.number == 0 || count < step.number) &&
                             markup.FindElem(step.name == "*" ? nullptr : step.name.c_str()) != 0;
        if (!isThere) {
            counts.pop_back();
            markup.OutOfElem();
        } else if (++count < step.number) {
            continue;
        } else if (counts.size() < steps) {
            markup.IntoElem();
            markup.ResetMainPos();
            counts.push_back(0);
        } else {
            ++found;
            if (!visit(markup))
                break;
        }
    }
    markup.ResetPos();
    return found;
}

} // namespace Motool
