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

/// A line format of the log, taken apart once into its placeholders and the text between them. Writes items.
/// One thread at a time.
class LogLayout {
public:
    enum class Values { Plain, XmlText }; ///< how values are written
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
    struct Piece {
        std::string literal; ///< in front of the placeholder
        Field field;
    };

    LogLayout(const KeldMBString& format, const KeldMBString& dateTimeFormat, Values values, bool utc = false);

    bool HasThreadID() const { return m_hasThreadID; }
    bool HasMilliseconds() const { return Has(Field::Milliseconds); }
    bool HasProcessID() const { return m_hasProcessID; }
    const std::vector<Piece>& Pieces() const { return m_pieces; }
    const std::string& Tail() const { return m_tail; } ///< behind the last piece

    void Append(std::string& text, const LogRecord& record);
    /// The charset that XML text is written in, the current one unless told.
    void SetCharset(KELDCharset::Charset charset) { m_xmlText.SetCharset(charset); }

private:
    struct Placeholder {
        std::string_view name;
        Field field;
    };
    static const Placeholder Placeholders[];

    bool Has(Field field) const;
    void UpdateDateTimeText(KeldTime time);
    std::size_t MostBytes(Field field, const LogRecord& record) const;

    std::vector<Piece> m_pieces;
    std::string m_tail;
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

} // namespace Qzc
