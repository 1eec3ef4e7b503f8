#include "toolkit/log/logitemreader.h"

#include <algorithm>
#include <charconv>

namespace Qzc {

namespace {

constexpr std::size_t LongestValue = 64; // with blanks; whoever looks for one in a long text asks at many places

void SkipBlanks(std::string_view& text) {
    std::size_t blanks = 0;
    while (blanks < std::min(text.size(), LongestValue) && text[blanks] == ' ')
        ++blanks;
    text.remove_prefix(blanks);
}

template <class T>
bool ReadNumber(std::string_view& text, T& value) {
    SkipBlanks(text);
    // Nearly all are short.
    constexpr std::size_t SafeDigits = 9;
    unsigned int number = 0;
    std::size_t digits = 0;
    for (; digits < std::min(text.size(), SafeDigits) && text[digits] >= '0' && text[digits] <= '9'; ++digits)
        number = number * 10 + static_cast<unsigned int>(text[digits] - '0');
    if (digits > 0 && digits < SafeDigits) {
        value = static_cast<T>(number);
        text.remove_prefix(digits);
        return true;
    }
    const std::string_view all = text.substr(0, LongestValue);
    const auto result = std::from_chars(all.data(), all.data() + all.size(), value);
    if (result.ec != std::errc())
        return false;
    text.remove_prefix(static_cast<std::size_t>(result.ptr - all.data()));
    return true;
}

} // namespace

bool ReadLogNumber(std::string_view& text, int& value) {
    return ReadNumber(text, value);
}

bool ReadLogNumber(std::string_view& text, unsigned int& value) {
    return ReadNumber(text, value);
}

bool ReadLogNumber(std::string_view& text, std::int64_t& value) {
    return ReadNumber(text, value);
}

bool ReadLogLevel(std::string_view& text, QzLogFile::LogLevelType& level) {
    constexpr struct {
        std::string_view name;
        QzLogFile::LogLevelType level;
    } Names[] = {{"info", QzLogFile::info},   {"warning", QzLogFile::warning}, {"error", QzLogFile::error},
                 {"debug", QzLogFile::debug}, {"fatal", QzLogFile::fatal},     {"unknown", QzLogFile::LogLevelType{}}};
    SkipBlanks(text);
    for (const auto& row : Names) {
        if (text.substr(0, row.name.size()) == row.name) {
            text.remove_prefix(row.name.size());
            level = row.level;
            return true;
        }
    }
    return false;
}

} // namespace Qzc
