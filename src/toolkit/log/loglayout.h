#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/keldmbstring.h"
#include "base/keldtime.h"
#include "base/namespaces.h"
#include "toolkit/log/logrecord.h"
#include "toolkit/log/logxml.h"

namespace Qzc {

/// A line format of the log, taken apart once into its placeholders and the text between them. Writes items
/// and reads them back. One thread at a time.
class LogLayout {
public:
    enum class Values { Plain, XmlText }; ///< how values are written

    LogLayout(const KeldMBString& format, const KeldMBString& dateTimeFormat, Values values, bool utc = false);

    bool HasThreadID() const { return m_hasThreadID; }
    bool HasMilliseconds() const { return Has(Field::Milliseconds); }
    bool HasProcessID() const { return m_hasProcessID; }

    void Append(std::string& text, const LogRecord& record);
    /// The charset that XML text is written in, the current one unless told.
    void SetCharset(KELDCharset::Charset charset) { m_xmlText.SetCharset(charset); }

    /// Whether an item may start here: everything in front of the message fits.
    bool StartsItem(std::string_view text);
    /// Whether that tells anything: a format that starts with the message fits every line.
    bool HasHead() const { return m_message != 0 || (!m_pieces.empty() && !m_pieces[0].literal.empty()); }
    /// Reads an item that is all of `text`.
    bool Read(std::string_view text, QzLogItem& item);

private:
    enum class Field {
        DateTime,
        TimeSpan,
        Level,
        Message,
        ResID,
        ThreadID,
        CodeFile,
        CodeLine,
        Milliseconds,
        ProcessID
    };
    struct Placeholder {
        std::string_view name;
        Field field;
    };
    struct Piece {
        std::string literal; ///< in front of the placeholder
        Field field;
    };
    static const Placeholder Placeholders[];

    bool Has(Field field) const;
    const std::string& Literal(std::size_t piece) const; ///< in front of the piece, or behind the last one
    void UpdateDateTimeText(KeldTime time);
    std::size_t MostBytes(Field field, const LogRecord& record) const;
    bool ReadDateTime(std::string_view& text, KeldTime& time);
    bool ReadValue(Field field, std::string_view& text, QzLogItem& item);
    bool ReadFrom(std::size_t piece, std::string_view text, QzLogItem& item, int& attempts);

    std::vector<Piece> m_pieces;
    std::string m_tail;
    std::size_t m_message; ///< the first piece that is the message, the number of pieces if there is none
    KeldMBString m_dateTimeFormat;
    Values m_values;
    bool m_utc;
    std::size_t m_literals; ///< bytes of all of them
    bool m_hasDateTime;
    bool m_hasThreadID;
    bool m_hasProcessID;
    LogXmlText m_xmlText;
    std::string m_xmlValues; ///< of the item that is being written

    // Items come many to the second.
    KeldTime m_time;
    std::string m_timeText;
    std::string m_timeXml; ///< the same as XML text
};

/// Reads a number behind blanks, and takes it off the text.
template <class T>
bool ReadLogNumber(std::string_view& text, T& value);
/// The same for a level's name; "unknown" reads as level 0.
bool ReadLogLevel(std::string_view& text, QzLogItem& item);

} // namespace Qzc
