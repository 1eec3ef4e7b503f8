#pragma once

#include <string_view>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/log/logdatetime.h"
#include "toolkit/log/logitemreader.h"

namespace Qzc {

/// Reads items of an XML log.
class LogXmlReader : public LogItemReader {
public:
    LogXmlReader(const KeldMBString& dateTimeFormat, bool utc) : m_dateTime(dateTimeFormat, utc) {}

    bool KnowsStart() const override { return true; }
    bool StartsItem(std::string_view text) override;
    bool Read(std::string_view text, LogReading& reading) override;

private:
    void ReadValue(std::string_view name, std::string_view content, bool hasMarkup, LogReading& reading);

    LogDateTimeReader m_dateTime;
    KeldMBString m_message;
    KeldMBString m_codeFile;
    KeldMBString m_value;
};

} // namespace Qzc
