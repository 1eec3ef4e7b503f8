#include "toolkit/log/logreader.h"

#include <algorithm>
#include <string>

#include "toolkit/log/logxml.h"
#include "toolkit/qzmarkup.h"

namespace Qzc {

namespace {

using Predicate = std::function<bool(std::string_view)>;
using Consumer = std::function<void(std::string_view)>;

constexpr std::size_t LongestItem = 1 << 26;
constexpr std::size_t LookAhead = 1 << 12; // enough to tell whether an item starts
constexpr std::int64_t BlockSize = 1 << 18;

// A window that slides over part of a file.
class Window {
public:
    Window(QzFile& file, std::int64_t from, std::int64_t to) : m_file(file), m_left(to - from) {
        if (m_left < 0 || !m_file.Seek(from))
            m_left = 0;
    }

    std::string_view View() const { return std::string_view(m_bytes).substr(m_start); }
    void Drop(std::size_t count) { m_start += count; }
    bool ReadMore() {
        m_bytes.erase(0, m_start);
        m_start = 0;
        const std::size_t known = m_bytes.size();
        const std::int64_t wanted = std::min(m_left, BlockSize);
        m_bytes.resize(known + static_cast<std::size_t>(wanted));
        const std::int64_t done = m_file.Read(m_bytes.data() + known, wanted);
        m_bytes.resize(known + static_cast<std::size_t>(done));
        m_left = done < wanted ? 0 : m_left - done;
        return done > 0;
    }

private:
    QzFile& m_file;
    std::int64_t m_left;
    std::string m_bytes;
    std::size_t m_start = 0;
};

// Cuts the file's lines into items, each with the lines behind it that start none.
void SplitItems(Window& window, const Predicate& startsItem, bool midLine, const Consumer& take) {
    bool inItem = false;
    bool more = window.ReadMore();
    std::size_t line = 0; // where the line starts, behind the start of the item
    if (midLine) {
        const std::size_t end = window.View().find('\n');
        window.Drop(end != std::string_view::npos ? end + 1 : window.View().size());
    }
    for (;;) {
        while (more && window.View().size() < line + LookAhead)
            more = window.ReadMore();
        if (line >= window.View().size())
            break;
        if (startsItem(window.View().substr(line))) {
            if (inItem)
                take(window.View().substr(0, line - 1));
            window.Drop(line);
            line = 0;
            inItem = true;
        }
        std::size_t end = window.View().find('\n', line);
        while (end == std::string_view::npos && more) {
            if (window.View().size() > LongestItem) {
                window.Drop(window.View().size());
                inItem = false;
            }
            const std::size_t known = window.View().size();
            more = window.ReadMore();
            end = window.View().find('\n', known);
        }
        if (end == std::string_view::npos)
            break; // a line that was cut off
        line = end + 1;
        if (!inItem || line > LongestItem) {
            window.Drop(line);
            line = 0;
            inItem = false;
        }
    }
    if (inItem && line != 0)
        take(window.View().substr(0, line - 1));
}

// The content of the child element that the markup is at, as it stands.
std::string_view Content(std::string_view element) {
    const std::size_t start = element.find('>');
    const std::size_t end = element.rfind("</");
    return start < end && end != std::string_view::npos ? element.substr(start + 1, end - start - 1)
                                                        : std::string_view();
}

void ReadXmlItem(std::string_view text, const KeldMBString& dateTimeFormat, const LogItemVisitor& visit) {
    QzMarkup markup;
    if (!markup.SetDoc(std::string(text).c_str()) || !markup.FindElem("LogItem"))
        return;
    QzLogItem item;
    while (markup.MoveNextChildElem()) {
        const KeldMBString name = markup.GetChildTagName();
        const KeldMBString element = markup.GetChildSubDoc();
        const KeldMBString value = ReadXmlText(Content(element.View()));
        std::string_view number = value.View();
        if (name == "DateTime")
            item.m_dtDateTime.Parse(dateTimeFormat, value);
        else if (name == "TimeSpan")
            ReadLogNumber(number, item.m_nTimeSpan);
        else if (name == "Level")
            ReadLogLevel(number, item);
        else if (name == "ResID")
            ReadLogNumber(number, item.m_nResID);
        else if (name == "Description")
            item.m_strDescription = value;
        else if (name == "ThreadID")
            ReadLogNumber(number, item.m_nThreadID);
        else if (name == "CodeFile")
            item.m_strCodeFile = value;
        else if (name == "CodeLine")
            ReadLogNumber(number, item.m_nCodeLine);
    }
    visit(item);
}

} // namespace

void ReadTextLog(QzFile& file, std::int64_t from, std::int64_t to, LogLayout& layout, const LogItemVisitor& visit) {
    Window window(file, from, to);
    SplitItems(
        window, [&](std::string_view text) { return layout.StartsItem(text); }, from > 0 && !layout.HasHead(),
        [&](std::string_view text) {
            QzLogItem item;
            if (layout.Read(text, item))
                visit(item);
        });
}

void ReadXmlLog(QzFile& file, const KeldMBString& dateTimeFormat, const LogItemVisitor& visit) {
    Window window(file, 0, file.GetLength());
    SplitItems(
        window, [](std::string_view text) { return text.substr(0, 9) == "<LogItem>" || text.substr(0, 6) == "</Log>"; },
        false, [&](std::string_view text) { ReadXmlItem(text, dateTimeFormat, visit); });
}

} // namespace Qzc
