#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// What a date and time stands for: two seconds in the hour that the clocks go through twice when daylight-saving time
/// ends, else one.
struct LogMoment {
    std::int64_t first = 0;
    std::int64_t last = 0;
};

/// Reads what strftime wrote with a format, by the C library's names of days and months. One thread at a time.
///
/// What the format does not tell is of the first day from 1970-01-01 on that fits, at 00:00:00.
class LogDateTimeReader {
public:
    LogDateTimeReader(const KeldMBString& format, bool utc);

    /// Whether times that are written with the format are read back from it. They are not when two of them look alike
    /// without need ("%I:%M" is only coarse, "%s%Y" runs together) or the C library writes what is unknown here.
    static bool CanRead(const KeldMBString& format, bool utc);

    /// Whether a time may start with a text; cheap, for the many lines at which none does.
    bool MayStart(std::string_view text) const {
        return m_start == '\0' ||
               (!text.empty() && (m_start == '0' ? text[0] >= '0' && text[0] <= '9' : text[0] == m_start));
    }
    /// Takes a time off the start of the text. False, and nothing is changed, when none stands there.
    bool Read(std::string_view& text, LogMoment& moment);

private:
    enum Field : unsigned char {
        Literal,
        Year,
        ShortYear,
        Century,
        IsoYear,
        IsoShortYear,
        Month,
        Day,
        YearDay,
        WeekDay,
        SundayWeek,
        MondayWeek,
        IsoWeek,
        Hour,
        Hour12,
        Afternoon,
        Minute,
        Second,
        Epoch,
        Offset,
        ZoneName,
        FieldCount
    };
    enum class Form : unsigned char { Text, Number, Name };
    struct Piece {
        Field field = Literal;
        Form form = Form::Text;
        bool padded = false; ///< with blanks
        int digits = 0;      ///< at most
        std::string literal;
        std::vector<std::string> names;
    };
    /// What a text told.
    struct Values {
        bool Has(Field field) const { return (told & (1U << field)) != 0; }
        void Set(Field field, std::int64_t value) {
            told |= 1U << field;
            values[field] = value;
        }

        unsigned told = 0;
        std::int64_t values[FieldCount] = {};
        std::string_view zone;
    };

    void Compile(std::string_view format);
    void CompileConversion(char conversion, bool padded, int width);
    void AddLiteral(std::string_view text);
    void AddNumber(Field field, int digits, bool padded);
    void AddNames(Field field, char conversion, bool padded);
    bool ReadPiece(const Piece& piece, std::string_view& text, Values& values) const;
    bool Resolve(const Values& values, LogMoment& moment);
    bool FindDay(const Values& values, std::int64_t& day);
    bool SearchDay(const Values& values, std::int64_t& day) const;
    void FromLocal(std::int64_t local, std::string_view zone, LogMoment& moment);

    std::vector<Piece> m_pieces;
    bool m_utc; ///< else local time
    bool m_readable = true;
    char m_start = '\0'; ///< what every time starts with: '0' for any digit, '\0' for this and that

    // Items come many to the second, and many seconds to the day.
    std::string m_lastText;
    LogMoment m_lastMoment;
    std::int64_t m_plainDay; ///< a day without a change of the clocks, and what its local time is ahead
    std::int64_t m_plainOffset = 0;
    Values m_searched; ///< for the day that was searched for last
    std::int64_t m_searchedDay = 0;
    bool m_searchedFound = false;
    bool m_hasSearched = false;
};

} // namespace Qzc
