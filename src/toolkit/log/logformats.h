#pragma once

#include <string>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/log/loglayout.h"
#include "toolkit/log/logoutput.h"

namespace Qzc {

/// The template of an XML item that holds the placeholders of a line format.
KeldMBString XmlLogFormatFor(const KeldMBString& lineFormat);

/// The formats that an item was recorded under, which it is written in even when it has to wait. One thread at a time.
struct LogFormats {
    LogFormats(const KeldMBString& line, const KeldMBString& dateTime, bool inUtc = false);

    /// As it stands in a file; one of XML is in the charset.
    void AppendWhole(std::string& text, const LogRecord& record, LogOutput::Form form,
                     KELDCharset::Charset charset = KELDCharset::Current);

    KeldMBString lineFormat;
    KeldMBString dateTimeFormat;
    bool utc;
    LogLayout lineLayout;
    LogLayout xmlLayout;
};

} // namespace Qzc
