#include "xmlfile.h"

#include <algorithm>
#include <string_view>

#include "output.h"
#include "system.h"

using namespace Qzc;

namespace Motool {

namespace {

// The line, cut to what is around the column, and a mark under it.
std::string ShownLine(std::string_view text, int line, int column) {
    for (int i = 1; i < line; ++i)
        text.remove_prefix(std::min(text.find('\n') + 1, text.size()));
    text = text.substr(0, text.find_first_of("\r\n"));
    constexpr std::size_t Before = 60;
    constexpr std::size_t Behind = 100;
    auto at = std::min(static_cast<std::size_t>(column - 1), text.size());
    if (at > Before) {
        text.remove_prefix(at - Before);
        at = Before;
    }
    const std::wstring front = OneLine(text.substr(0, at));
    const std::wstring rest = OneLine(text.substr(at, Behind));
    return "    " + ToTerminal(front + rest) + "\n    " + std::string(static_cast<std::size_t>(Columns(front)), ' ') +
           '^';
}

void TellFault(const QzMarkup& markup, const std::string& file, int line, int column) {
    KeldMBString message = markup.GetError();
    const int size = message.Find(" bytes"); // of the file, which stands in front
    if (size > 0 && message.FindOneOf("0123456789") == 0)
        message.Delete(0, size + 6);
    message.TrimLeft(',').TrimLeft();
    if (message.IsEmpty())
        message = "there is no element";
    Warn(Shown(file) + ':' + Number(line) + ':' + Number(column) + ": " + Escaped(message.View()) + '\n' +
         ShownLine(markup.GetDoc().View(), line, column));
}

} // namespace

Loaded LoadDocument(QzMarkup& markup, const std::string& file) {
    int line = 0;
    int column = 0;
    bool isWhole = markup.Load(PathOf(file).Cstr()) != 0;
    if (markup.IsConverted() == 0 && markup.GetEncoding() != KELDCharset::Unknown && SwitchToUtf8()) {
        markup = QzMarkup();
        isWhole = markup.Load(PathOf(file).Cstr()) != 0;
    }
    if (isWhole)
        return Loaded::Whole;
    if (markup.GetErrorPosition(line, column) == 0) {
        Warn(Shown(file) + ": " + Escaped(markup.GetError().View()));
        return Loaded::Failed;
    }
    TellFault(markup, file, line, column);
    return Loaded::Malformed;
}

} // namespace Motool
