#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/keldmbstring.h"
#include "base/namespaces.h"

namespace Qzc {

/// The text of a number, "." for the decimal point and no grouping whatever the locale. Held in place: no
/// allocation.
class NumberText {
public:
    static NumberText Integer(std::int32_t value);       ///< as "%d" does
    static NumberText Fixed(double value, int decimals); ///< as "%.*f" does; at most 10 decimals
    static NumberText General(double value);             ///< as "%g" does
    static NumberText Shortest(double value);            ///< the fewest digits that read back to it
    const char* Cstr() const { return m_text; }
    std::string_view View() const { return std::string_view(m_text, m_length); }

private:
    NumberText() = default;
    template <class... Arguments>
    static NumberText Of(Arguments... arguments);

    std::size_t m_length = 0;
    char m_text[336]; // a sign, the 309 digits of the largest double, a point, the decimals, a terminator
};

/// The integer that a text starts with, behind blanks and a sign; 0 when there is none, the nearest int when
/// it is larger than one.
int qzatoi(const char* text);

/// The same for unsigned values, which some write as the int of the same bits.
std::uint32_t qzatou(const char* text);

/// The decimal number that a text starts with, behind blanks and a sign, with an exponent where there is one, whatever
/// the locale; 0 when there is none (so also for "inf" and "nan"), the nearest double when none can hold it.
double qzatof(const char* text);

/// std::from_chars, also for C++ libraries that lack it for double ("inf" and "nan" are no numbers there).
std::from_chars_result ReadDouble(std::string_view text, double& value);

/// Without its fraction; the nearest int when it is larger than one, 0 when it is no number.
std::int32_t Truncated(double value);

} // namespace Qzc
