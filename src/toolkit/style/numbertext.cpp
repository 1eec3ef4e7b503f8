#include "toolkit/style/numbertext.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "base/keldmemory.h"
#include "platform/decimal.h"

namespace Qzc {

namespace {

const char* SkipBlanks(const char* text) {
    while (*text == ' ' || (*text >= '\t' && *text <= '\r'))
        ++text;
    return text;
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Wide enough to tell which of the two 32-bit types a number belongs to.
std::int64_t LeadingInteger(const char* text) {
    constexpr std::int64_t Limit = std::int64_t{1} << 40;
    text = SkipBlanks(text);
    const bool negative = *text == '-';
    if (negative || *text == '+')
        ++text;
    std::int64_t value = 0;
    for (; IsDigit(*text); ++text)
        value = std::min(value * 10 + (*text - '0'), Limit);
    return negative ? -value : value;
}

#if defined(__cpp_lib_to_chars)
// Of a number that no double holds: whether it is too large, and not too small.
bool IsLarge(std::string_view number) {
    const std::size_t mark = std::min(number.find_first_of("eE"), number.size());
    const std::string_view digits = number.substr(0, mark);
    const auto point = static_cast<std::int64_t>(std::min(digits.find('.'), digits.size()));
    const auto first = static_cast<std::int64_t>(std::min(digits.find_first_of("123456789"), digits.size()));
    const std::int64_t exponent = mark < number.size() ? LeadingInteger(number.data() + mark + 1) : 0;
    return exponent + point - first > 0;
}

// The number that the text starts with. What no double holds gives the greatest, or 0.
double LeadingDecimal(const char* text) {
    double value = 0;
    const auto [end, error] = ReadDouble(text, value);
    if (error == std::errc::result_out_of_range)
        value = IsLarge(std::string_view(text, static_cast<std::size_t>(end - text)))
                    ? std::numeric_limits<double>::max()
                    : 0;
    return value;
}
#else
// The same, for C++ libraries that cannot read a double. The system takes 0x for the start of another number.
double LeadingDecimal(const char* text) {
    const bool isOther = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    return isOther ? 0 : std::min(Platform::ReadDecimal(text), std::numeric_limits<double>::max());
}
#endif

} // namespace

template <class... Arguments>
NumberText NumberText::Of(Arguments... arguments) {
    NumberText number;
    char* const end = std::to_chars(number.m_text, number.m_text + sizeof(number.m_text) - 1, arguments...).ptr;
    *end = '\0';
    number.m_length = static_cast<std::size_t>(end - number.m_text);
    return number;
}

NumberText NumberText::Integer(std::int32_t value) {
    return Of(value);
}

NumberText NumberText::Fixed(double value, int decimals) {
    return Of(value, std::chars_format::fixed, decimals);
}

NumberText NumberText::General(double value) {
    return Of(value, std::chars_format::general, 6);
}

NumberText NumberText::Shortest(double value) {
    return Of(value);
}

int qzatoi(const char* text) {
    using Limits = std::numeric_limits<int>;
    return static_cast<int>(std::clamp<std::int64_t>(LeadingInteger(text), Limits::min(), Limits::max()));
}

std::uint32_t qzatou(const char* text) {
    const std::int64_t value = std::clamp<std::int64_t>(LeadingInteger(text), std::numeric_limits<std::int32_t>::min(),
                                                        std::numeric_limits<std::uint32_t>::max());
    return static_cast<std::uint32_t>(value);
}

double qzatof(const char* text) {
    text = SkipBlanks(text);
    const bool negative = *text == '-';
    if (negative || *text == '+')
        ++text;
    if (!IsDigit(*text) && *text != '.')
        return 0;
    const double value = LeadingDecimal(text);
    return negative ? -value : value;
}

#if defined(__cpp_lib_to_chars)
std::from_chars_result ReadDouble(std::string_view text, double& value) {
    return std::from_chars(text.data(), text.data() + text.size(), value);
}
#else
std::from_chars_result ReadDouble(std::string_view text, double& value) {
    const auto digits = [&](std::size_t at) {
        while (at < text.size() && IsDigit(text[at]))
            ++at;
        return at;
    };
    const std::size_t start = !text.empty() && text[0] == '-' ? 1 : 0;
    std::size_t end = digits(start);
    const bool hasPoint = end < text.size() && text[end] == '.';
    const std::size_t fraction = hasPoint ? digits(end + 1) : end;
    if (fraction - start == (hasPoint ? 1U : 0U))
        return {text.data(), std::errc::invalid_argument};
    end = fraction;
    if (end < text.size() && (text[end] == 'e' || text[end] == 'E')) {
        const bool hasSign = end + 1 < text.size() && (text[end + 1] == '+' || text[end + 1] == '-');
        const std::size_t exponent = end + (hasSign ? 2 : 1);
        if (digits(exponent) > exponent)
            end = digits(exponent);
    }
    double read = 0;
    if (!TryMemory([&] { read = Platform::ReadDecimal(std::string(text.substr(0, end)).c_str()); }))
        return {text.data(), std::errc::not_enough_memory};
    const std::string_view mantissa = text.substr(0, std::min(text.find_first_of("eE"), end));
    const bool isZero = mantissa.find_first_of("123456789") == std::string_view::npos;
    if (std::isinf(read) || (read == 0 && !isZero))
        return {text.data() + end, std::errc::result_out_of_range};
    value = read;
    return {text.data() + end, std::errc()};
}
#endif

std::int32_t Truncated(double value) {
    using Limits = std::numeric_limits<std::int32_t>;
    if (!(value > Limits::min())) // also when it is no number
        return value <= Limits::min() ? Limits::min() : 0;
    return value < Limits::max() ? static_cast<std::int32_t>(value) : Limits::max();
}

} // namespace Qzc
