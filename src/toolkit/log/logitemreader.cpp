#include "toolkit/log/logitemreader.h"

#include <algorithm>
#include <charconv>

namespace Qzc {

namespace {

constexpr std::size_t LongestValue = 64; // with blanks; whoever looks for one in a long text asks at many places

void SkipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.substr(0, LongestValue).find_first_not_of(' '), text.size()));
}

template <class T>
bool ReadNumber(std::string_view& text, T& value) {
    SkipBlanks(text);
    const std::string_view digits = text.substr(0, LongestValue);
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (result.ec != std::errc())
        return false;
    text.remove_prefix(static_cast<std::size_t>(result.ptr - digits.data()));
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
