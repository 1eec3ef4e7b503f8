#include "platform/decimal.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>
#include <system_error>

namespace Platform {

namespace {

bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Of a number that no double holds: whether it is too large, not too small.
bool IsLarge(std::string_view digits, bool isHexadecimal) {
    long long magnitude = 0; // of the first digit that counts
    bool hasPoint = false;
    bool counts = false;
    std::size_t i = 0;
    for (; i < digits.size(); ++i) {
        const char c = digits[i];
        if ((!isHexadecimal && (c == 'e' || c == 'E')) || c == 'p' || c == 'P')
            break;
        if (c == '.')
            hasPoint = true;
        else if (c != '0' || counts) {
            if (!counts && hasPoint)
                --magnitude;
            counts = true;
            magnitude += hasPoint ? 0 : 1;
        } else if (hasPoint)
            --magnitude;
    }
    if (isHexadecimal)
        magnitude *= 4;
    long long exponent = 0;
    if (i + 1 < digits.size()) {
        const bool isNegative = digits[i + 1] == '-';
        for (std::size_t at = i + 1 + (isNegative || digits[i + 1] == '+' ? 1 : 0); at < digits.size(); ++at) {
            if (exponent < std::numeric_limits<int>::max())
                exponent = exponent * 10 + (digits[at] - '0');
        }
        exponent = isNegative ? -exponent : exponent;
    }
    return magnitude + exponent > 0;
}

} // namespace

double ReadDecimal(const char* text) {
    while (IsBlank(*text))
        ++text;
    const bool isNegative = *text == '-';
    if (isNegative || *text == '+')
        ++text;
    std::string_view digits = text;
    if (!digits.empty() && (digits[0] == '-' || digits[0] == '+'))
        return 0;
    const bool isHexadecimal = digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X');
    double value = 0;
    std::from_chars_result result = {};
    if (isHexadecimal) {
        const std::string_view behind = digits.substr(2);
        result = std::from_chars(behind.data(), behind.data() + behind.size(), value, std::chars_format::hex);
        digits = behind;
    } else {
        result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    }
    if (result.ec == std::errc::result_out_of_range) {
        digits = digits.substr(0, static_cast<std::size_t>(result.ptr - digits.data()));
        value = IsLarge(digits, isHexadecimal) ? std::numeric_limits<double>::infinity() : 0;
    } else if (result.ec != std::errc()) {
        return 0;
    }
    return isNegative ? -value : value;
}

} // namespace Platform
