#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "platform/localtime.h"
#include "platform/win32/text.h"
#include "platform/win32/timezone.h"

// The C library here ends the process at conversions that came after C89, and knows neither flags nor widths. They mean
// here what they do where formats with them are written.

namespace Platform {

namespace {

char Upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
}

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

// A conversion taken apart.
struct Conversion {
    explicit Conversion(std::string_view text) {
        std::size_t i = 1;
        for (; i < text.size() && std::string_view("_-0+^#").find(text[i]) != std::string_view::npos; ++i) {
            isUpper = isUpper || text[i] == '^';
            isOther = isOther || text[i] == '#';
            pad = text[i] == '^' || text[i] == '#' ? pad : text[i];
        }
        for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i)
            width = std::min(width * 10 + static_cast<std::size_t>(text[i] - '0'), std::size_t{1024});
        i += i < text.size() && (text[i] == 'E' || text[i] == 'O') ? 1 : 0; // no locale here has other digits or years
        letter = i + 1 == text.size() ? text[i] : '\0';
        isPlain = i == 1;
    }

    char pad = '\0';
    bool isUpper = false;
    bool isOther = false; ///< the case is the one that it is not
    std::size_t width = 0;
    char letter = '\0'; ///< none when it is no conversion
    bool isPlain = true;
};

std::string Format(const char* format, const std::tm& time) {
    char text[256];
    return std::string(text, FormatTime(text, sizeof(text), format, time));
}

std::string HourWithBlank(const char* format, const std::tm& time) {
    std::string text = Format(format, time);
    if (text[0] == '0')
        text[0] = ' ';
    return text;
}

std::string OffsetText(const std::tm& time, bool isUtc) {
    std::int64_t seconds = 0;
    if (time.tm_isdst < 0 || (!isUtc && !FromLocalTime(time, seconds)))
        return std::string();
    const std::int64_t minutes = isUtc ? 0 : LocalOffsetAt(seconds).seconds / 60;
    const std::int64_t absolute = minutes < 0 ? -minutes : minutes;
    const std::string digits = std::to_string(10000 + absolute / 60 * 100 + absolute % 60).substr(1);
    return (minutes < 0 ? "-" : "+") + digits;
}

std::string NameOfZone(const std::tm& time, bool isUtc) {
    if (isUtc)
        return "GMT";
    const std::wstring name = time.tm_isdst < 0 ? std::wstring() : LocalZoneName(time.tm_isdst > 0);
    std::string text = NarrowPath(name); // in the current charset
    for (const wchar_t unit : text.empty() ? name : std::wstring())
        text += unit < 0x80 ? static_cast<char>(unit) : '?';
    return text;
}

std::string Seconds(const std::tm& time) {
    std::int64_t seconds = 0;
    return FromLocalTime(time, seconds) ? std::to_string(seconds) : std::string();
}

std::string ByLibrary(char conversion, const std::tm& time) {
    const bool isNamed = time.tm_wday >= 0 && time.tm_wday < 7 && time.tm_mon >= 0 && time.tm_mon < 12;
    if (!isNamed)
        return std::string();
    char text[256];
    const char format[] = {'%', conversion, '\0'};
    return std::string(text, std::strftime(text, sizeof(text), format, &time));
}

// What has neither flags nor a width; false when it is no conversion.
bool Plain(char letter, const std::tm& time, bool isUtc, std::string& text) {
    switch (letter) {
    case 'a':
    case 'A':
    case 'b':
    case 'B':
    case 'p':
    case 'x':
    case 'X': text = ByLibrary(letter, time); return true;
    case 'h': text = ByLibrary('b', time); return true;
    case 'P':
        text = ByLibrary('p', time);
        std::transform(text.begin(), text.end(), text.begin(), Lower);
        return true;
    case 'k': text = HourWithBlank("%H", time); return true;
    case 'l': text = HourWithBlank("%I", time); return true;
    case 's': text = Seconds(time); return true;
    case 'z': text = OffsetText(time, isUtc); return true;
    case 'Z': text = NameOfZone(time, isUtc); return true;
    case 'c': text = Format("%a %b %e %T %Y", time); return true;
    case 'r': text = Format("%I:%M:%S %p", time); return true;
    default: return false;
    }
}

// A number is padded as it usually is, to its usual width at least, unless it is told otherwise.
void PadNumber(const Conversion& conversion, std::string& text) {
    const std::size_t width = std::max(conversion.width, text.size());
    const bool isBlank = std::string_view("ekl").find(conversion.letter) != std::string_view::npos;
    const char fill = conversion.pad == '_' || (conversion.pad == '\0' && isBlank) ? ' ' : '0';
    const std::size_t sign = text[0] == '-' ? 1 : 0;
    text.erase(sign, std::min(text.find_first_not_of(" 0", sign), text.size() - 1) - sign);
    if (conversion.pad != '-' && text.size() < width)
        text.insert(fill == '0' ? sign : 0, width - text.size(), fill);
}

void ChangeCase(const Conversion& conversion, std::string& text) {
    const auto has = [&](std::string_view letters) {
        return letters.find(conversion.letter) != std::string_view::npos;
    };
    if (conversion.isUpper || (conversion.isOther && has("aAbBh")))
        std::transform(text.begin(), text.end(), text.begin(), Upper);
    else if (conversion.isOther && has("pZ"))
        std::transform(text.begin(), text.end(), text.begin(), Lower);
}

// With flags and a width.
void Adorn(const Conversion& conversion, std::string& text) {
    if (std::string_view("CdeGgHIjklmMsSuUVwWyY").find(conversion.letter) != std::string_view::npos && !text.empty())
        PadNumber(conversion, text);
    else
        ChangeCase(conversion, text);
    if (text.size() < conversion.width)
        text.insert(0, conversion.width - text.size(), conversion.pad == '0' || conversion.pad == '+' ? '0' : ' ');
}

// The text of one conversion; as it stands when it is none.
std::string TextOf(std::string_view conversion, const std::tm& time, bool isUtc) {
    const Conversion parts(conversion);
    std::string text;
    bool isKnown = Plain(parts.letter, time, isUtc, text);
    if (!isKnown && !parts.isPlain && parts.letter != '\0') { // one of those that need no system
        const char format[] = {'%', parts.letter, '\0'};
        text = Format(format, time);
        isKnown = text != format;
    }
    if (!isKnown)
        text = conversion;
    else if (!parts.isPlain)
        Adorn(parts, text);
    return text;
}

} // namespace

bool FormatBySystem(char* buffer, std::size_t size, std::string_view conversion, const std::tm& time, bool isUtc,
                    std::size_t& length) {
    try {
        const std::string text = TextOf(conversion, time, isUtc);
        length = text.size();
        if (length > size)
            return false;
        std::memcpy(buffer, text.data(), length);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

} // namespace Platform
