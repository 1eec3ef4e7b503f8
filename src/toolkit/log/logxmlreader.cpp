#include "toolkit/log/logxmlreader.h"

#include "toolkit/log/logxml.h"

namespace Qzc {

namespace {

constexpr std::string_view ItemStart = "<LogItem>";
constexpr std::string_view ItemEnd = "</LogItem>";

bool StartsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

// The text of an element, which stands in `text` as it is if it can.
std::string_view TextOf(std::string_view content, KeldMBString& text) {
    if (content.find_first_of("&<") == std::string_view::npos)
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
        const std::size_t tagEnd = text.find('>');
        if (tagEnd == std::string_view::npos)
            return false;
        const std::string_view tag = text.substr(1, tagEnd - 1);
        text.remove_prefix(tagEnd + 1);
        if (tag.empty() || tag.back() == '/' || tag[0] == '?' || tag[0] == '!')
            continue;
        const std::string_view name = tag.substr(0, tag.find_first_of(" \t\r\n"));
        // Markup in a value is escaped, so its end is the next end of an element.
        const std::size_t end = text.find("</");
        if (end == std::string_view::npos || text.substr(end + 2, name.size()) != name)
            return false;
        ReadValue(name, text.substr(0, end), reading);
        text.remove_prefix(end + 2 + name.size());
    }
}

void LogXmlReader::ReadValue(std::string_view name, std::string_view content, LogReading& reading) {
    if (name == "Description") {
        reading.message = TextOf(content, m_message);
    } else if (name == "CodeFile") {
        reading.codeFile = TextOf(content, m_codeFile);
    } else {
        std::string_view value = TextOf(content, m_value);
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
    }
}

} // namespace Qzc
