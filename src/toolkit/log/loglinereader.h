#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/keldmbstring.h"
#include "base/namespaces.h"
#include "toolkit/log/logdatetime.h"
#include "toolkit/log/logitemreader.h"
#include "toolkit/log/loglayout.h"

namespace Qzc {

/// Reads items that were written in a line format. What stands for the message and the source file may be any text:
/// the message is what is left when all around it is as short as can be. Each byte is looked at a few times at most,
/// whatever it is.
class LogLineReader : public LogItemReader {
public:
    LogLineReader(const KeldMBString& format, const KeldMBString& dateTimeFormat, bool utc);

    bool KnowsStart() const override;
    bool StartsItem(std::string_view text) override;
    const LogReading* Start() const override { return &m_head; }
    LogKnown KnownAtStart() const override { return m_known; }
    /// An item whose end does not fit, one that was cut off or that holds another's start, is read all the same if its
    /// start told enough: all behind that is its message.
    bool Read(std::string_view text, LogReading& reading) override;

private:
    static constexpr std::size_t No = static_cast<std::size_t>(-1);

    const std::string& Literal(std::size_t piece) const; ///< in front of the piece, or behind the last one
    bool ReadValue(LogLayout::Field field, std::string_view& text, LogReading& reading);
    std::size_t ReadFixed(std::size_t stretch, std::string_view text, std::size_t at, LogReading& reading);
    std::size_t FindFixed(std::size_t stretch, std::string_view text, std::size_t from, LogReading& reading);
    bool FindTail(std::string_view text, std::size_t from, LogReading& reading);
    bool IsKnown(LogLayout::Field field) const;
    bool ReadAll(std::string_view text, LogReading& reading);

    LogLayout m_layout;
    LogDateTimeReader m_dateTime;
    std::vector<std::size_t> m_freeTexts; ///< the pieces that are
    std::size_t m_message;                ///< which of these is the message; their number if none is
    bool m_headTells = false;             ///< a value stands in front of the message
    bool m_repeats = false;               ///< a value stands there twice
    bool m_startsWithTime = false;
    LogKnown m_known;

    LogReading m_head;                         ///< what the last start told
    std::size_t m_headEnd = 0;                 ///< where its message starts
    std::vector<std::size_t> m_starts, m_ends; ///< of the free texts
};

} // namespace Qzc
