#pragma once

#include <cstdint>
#include <string_view>

#include "base/keldtime.h"
#include "base/namespaces.h"
#include "toolkit/qzlogitem.h"

namespace Qzc {

/// An item whose texts are somebody else's.
struct LogRecord {
    LogRecord() = default;
    LogRecord(const QzLogItem& item);

    KeldTime dateTime;
    int milliseconds = 0;
    int resID = 0;
    std::int64_t timeSpan = 0;
    unsigned int threadID = 0;
    unsigned int processID = 0;
    QzLogFile::LogLevelType level = QzLogFile::info;
    int codeLine = 0;
    std::string_view message;
    std::string_view codeFile;

    QzLogItem ToItem() const;
};

} // namespace Qzc
