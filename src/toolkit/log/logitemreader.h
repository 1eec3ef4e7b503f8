#pragma once

#include <cstdint>
#include <string_view>

#include "base/namespaces.h"
#include "toolkit/log/logdatetime.h"
#include "toolkit/log/logrecord.h"
#include "toolkit/qzlogitem.h"

namespace Qzc {

/// An item as it stands in a file. The texts belong to the bytes that it was read from, or to the reader.
struct LogReading : LogRecord {
    bool hasMoment = false; ///< else the time is that of a new item
    LogMoment moment;       ///< what the time is made of
};

/// Values that an item's start tells for good.
struct LogKnown {
    bool time = false;
    bool level = false;
    bool resID = false;
    bool threadID = false;
};

/// Reads items in one of the log's two forms. One thread at a time.
class LogItemReader {
public:
    LogItemReader() = default;
    virtual ~LogItemReader() = default;
    LogItemReader(const LogItemReader&) = delete;
    LogItemReader& operator=(const LogItemReader&) = delete;

    /// Whether a line that starts an item tells itself from others. Else each line starts one.
    virtual bool KnowsStart() const = 0;
    /// Whether an item may start where the text does, a line's start.
    virtual bool StartsItem(std::string_view text) = 0;
    /// What the start told; null when that takes to read the item. What stands behind it may change it, unless it is
    /// known for good.
    virtual const LogReading* Start() const { return nullptr; }
    virtual LogKnown KnownAtStart() const { return {}; }
    /// Reads the item that is all of `text`, of which the last question was asked.
    virtual bool Read(std::string_view text, LogReading& reading) = 0;
};

/// Reads a value behind blanks, and takes it off the text. An unknown level reads as 0.
bool ReadLogNumber(std::string_view& text, int& value);
bool ReadLogNumber(std::string_view& text, unsigned int& value);
bool ReadLogNumber(std::string_view& text, std::int64_t& value);
bool ReadLogLevel(std::string_view& text, QzLogFile::LogLevelType& level);

} // namespace Qzc
