#include "toolkit/log/logformats.h"

#include "toolkit/qzmarkup.h"

namespace Qzc {

KeldMBString XmlLogFormatFor(const KeldMBString& lineFormat) {
    constexpr const char* Fields[][2] = {
        {"DateTime", "%DATETIME"}, {"TimeSpan", "%TIMESPAN"}, {"Level", "%LEVEL"},       {"ResID", "%RESID"},
        {"Description", "%MSG"},   {"ThreadID", "%THREADID"}, {"CodeFile", "%CODEFILE"}, {"CodeLine", "%CODELINE"},
    };
    QzMarkup markup;
    markup.AddElem("LogItem");
    for (const auto& [element, placeholder] : Fields)
        markup.AddChildElem(element, lineFormat.Find(placeholder) >= 0 ? placeholder : nullptr);
    return markup.GetDoc();
}

LogFormats::LogFormats(const KeldMBString& line, const KeldMBString& dateTime)
    : lineFormat(line), dateTimeFormat(dateTime), lineLayout(line, dateTime, LogLayout::Values::Plain),
      xmlLayout(XmlLogFormatFor(line), dateTime, LogLayout::Values::XmlText) {}

void LogFormats::AppendWhole(std::string& text, const QzLogItem& item, LogOutput::Form form) {
    if (form == LogOutput::Form::Xml) {
        xmlLayout.Append(text, item);
    } else {
        lineLayout.Append(text, item);
        text += '\n';
    }
}

} // namespace Qzc
