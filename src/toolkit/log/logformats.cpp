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
    const LogLayout layout(lineFormat, KeldMBString(), LogLayout::Values::Plain);
    if (layout.HasMilliseconds())
        markup.AddChildElem("Milliseconds", "%MS");
    if (layout.HasProcessID())
        markup.AddChildElem("ProcessID", "%PID");
    return markup.GetDoc();
}

LogFormats::LogFormats(const KeldMBString& line, const KeldMBString& dateTime, bool inUtc)
    : lineFormat(line), dateTimeFormat(dateTime), utc(inUtc),
      lineLayout(line, dateTime, LogLayout::Values::Plain, inUtc),
      xmlLayout(XmlLogFormatFor(line), dateTime, LogLayout::Values::XmlText, inUtc) {}

void LogFormats::AppendWhole(std::string& text, const LogRecord& record, LogOutput::Form form,
                             KELDCharset::Charset charset) {
    if (form == LogOutput::Form::Xml) {
        xmlLayout.SetCharset(charset);
        xmlLayout.Append(text, record);
    } else {
        lineLayout.Append(text, record);
        text += '\n';
    }
}

} // namespace Qzc
