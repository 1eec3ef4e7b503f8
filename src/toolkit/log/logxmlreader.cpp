#include "toolkit/log/logxmlreader.h"

#include "toolkit/log/logxml.h"

namespace Qzc {

namespace {

constexpr std::string_view ItemStart = "<LogItem>";
constexpr std::string_view ItemEnd = "</LogItem>";

bool StartsWith(std::string_view text, std::string_view start) {
    if (text.size() < start.size())
        return false;
    for (std::size_t i = 0; i < start.size(); ++i) { // a few bytes, most often not even the first
        if (text[i] != start[i])
            return false;
    }
    return true;
}

bool EndsElement(std::string_view text, std::string_view name) {
    return StartsWith(text, "</") && StartsWith(text.substr(2), name) && StartsWith(text.substr(2 + name.size()), ">");
}

// The text of an element, which stands in `text` as it is if it can.
std::string_view TextOf(std::string_view content, bool hasMarkup, KeldMBString& text) {
    if (!hasMarkup && content.find('&') == std::string_view::npos)
        return content;
    text = ReadXmlText(content);
    return text.View();
}

} // namespace

bool LogXmlReader::StartsItem(std::string_view text) {
    return StartsWith(text, ItemStart) || StartsWith(text, "</Log>");
}

bool LogXmlReader::Read(std::string_view text, LogReading& reading) {
    if (!StartsWith(text, ItemStart))
        return false;
    reading = LogReading();
    for (text.remove_prefix(ItemStart.size());;) {
        const std::size_t start = text.find('<');
        if (start == std::string_view::npos)
            return false; // cut off
        text.remove_prefix(start);
        if (StartsWith(text, ItemEnd))
            return true;
        std::size_t nameEnd = 1;
        while (nameEnd < text.size() && text[nameEnd] > ' ' && text[nameEnd] != '>' && text[nameEnd] != '/')
            ++nameEnd;
        const std::string_view name = text.substr(1, nameEnd - 1);
        const std::size_t tagEnd = text.find('>', nameEnd);
        if (tagEnd == std::string_view::npos)
            return false;
        const bool isEmpty = text[tagEnd - 1] == '/' || name.empty() || name[0] == '?' || name[0] == '!';
        text.remove_prefix(tagEnd + 1);
        if (isEmpty)
            continue;
        // Markup in a value is escaped but for instructions, and no character that ends like a bracket is followed by
        // the element's name: that is its end.
        std::size_t end = text.find('<');
        const bool hasMarkup = end != std::string_view::npos && !EndsElement(text.substr(end), name);
        while (end != std::string_view::npos && !EndsElement(text.substr(end), name))
            end = text.find("</", end + 1);
        if (end == std::string_view::npos)
            return false;
        ReadValue(name, text.substr(0, end), hasMarkup, reading);
        text.remove_prefix(end + 3 + name.size());
    }
}

void LogXmlReader::ReadValue(std::string_view name, std::string_view content, bool hasMarkup, LogReading& reading) {
    if (name == "Description") {
        reading.message = TextOf(content, hasMarkup, m_message);
    } else if (name == "CodeFile") {
        reading.codeFile = TextOf(content, hasMarkup, m_codeFile);
    } else {
        std::string_view value = TextOf(content, hasMarkup, m_value);
        if (name == "DateTime")
            reading.hasMoment = m_dateTime.Read(value, reading.moment);
        else if (name == "TimeSpan")
            ReadLogNumber(value, reading.timeSpan);
        else if (name == "Level")
            ReadLogLevel(value, reading.level);
        else if (name == "ResID")
            ReadLogNumber(value, reading.resID);
        else if (name == "ThreadID")
            ReadLogNumber(value, reading.threadID);
        else if (name == "CodeLine")
            ReadLogNumber(value, reading.codeLine);
        else if (name == "Milliseconds")
            ReadLogNumber(value, reading.milliseconds);
        else if (name == "ProcessID")
            ReadLogNumber(value, reading.processID);
    }
}

} // namespace Qzc
