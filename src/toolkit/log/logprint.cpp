#include "toolkit/log/logprint.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>

namespace Qzc {

namespace {

// What stands between the percent sign and the conversion.
struct Spec {
    bool left = false;
    bool zeros = false;
    bool plus = false;
    bool blank = false;
    int width = 0;
    int precision = -1; ///< none
    enum class Size { Char, Short, Int, Long, LongLong, Max, Ptrdiff } size = Size::Int;
};

constexpr int MostDigits = 64; // that a precision may ask for; there is no need here to be fast with more
constexpr int MostWidth = 1000;

class Printer {
public:
    Printer(const char* format, std::va_list arguments) : m_at(format) {
        va_copy(m_arguments, arguments);
        m_text.reserve(std::strlen(format) + 96);
    }
    ~Printer() { va_end(m_arguments); }
    Printer(const Printer&) = delete;
    Printer& operator=(const Printer&) = delete;

    /// False for what is left to vprintf.
    bool Print() {
        for (;;) {
            const char* const percent = std::strchr(m_at, '%');
            if (percent == nullptr) {
                m_text.append(m_at);
                return true;
            }
            m_text.append(m_at, static_cast<std::size_t>(percent - m_at));
            m_at = percent + 1;
            Spec spec;
            if (!ReadSpec(spec) || !Convert(*m_at++, spec))
                return false;
        }
    }
    std::string&& Text() { return std::move(m_text); }

private:
    bool ReadSpec(Spec& spec) {
        for (;; ++m_at) {
            switch (*m_at) {
            case '-': spec.left = true; continue;
            case '0': spec.zeros = true; continue;
            case '+': spec.plus = true; continue;
            case ' ': spec.blank = true; continue;
            default: break;
            }
            break;
        }
        if (!ReadNumber(spec.width))
            return false;
        if (spec.width < 0) {
            spec.left = true;
            spec.width = -spec.width;
        }
        if (*m_at == '.') {
            ++m_at;
            spec.precision = 0;
            if (!ReadNumber(spec.precision))
                return false;
            spec.precision = std::max(spec.precision, -1);
        }
        ReadSize(spec);
        return spec.width <= MostWidth;
    }

    bool ReadNumber(int& number) {
        if (*m_at == '*') {
            ++m_at;
            number = va_arg(m_arguments, int);
            return number > -MostWidth;
        }
        for (; *m_at >= '0' && *m_at <= '9'; ++m_at) {
            number = number * 10 + (*m_at - '0');
            if (number > MostWidth)
                return false;
        }
        return true;
    }

    void ReadSize(Spec& spec) {
        using Size = Spec::Size;
        const char size = *m_at;
        if (std::strchr("hlzjtq", size) == nullptr || size == '\0')
            return;
        ++m_at;
        const bool isDouble = *m_at == size && (size == 'h' || size == 'l');
        m_at += isDouble ? 1 : 0;
        switch (size) {
        case 'h': spec.size = isDouble ? Size::Char : Size::Short; break;
        case 'l': spec.size = isDouble ? Size::LongLong : Size::Long; break;
        case 'q': spec.size = Size::LongLong; break;
        case 'j': spec.size = Size::Max; break;
        default: spec.size = Size::Ptrdiff; break; // as long as size_t
        }
    }

    bool Convert(char conversion, Spec& spec) {
        switch (conversion) {
        case '%': m_text += '%'; return m_at[-2] == '%';
        case 'd':
        case 'i': PrintSigned(spec); return true;
        case 'u': PrintUnsigned(spec, 10); return true;
        case 'o': PrintUnsigned(spec, 8); return true;
        case 'x': PrintUnsigned(spec, 16); return true;
        case 'X': {
            const std::size_t start = m_text.size();
            PrintUnsigned(spec, 16);
            MakeUpper(start);
            return true;
        }
        case 'c':
            if (spec.size != Spec::Size::Int || spec.zeros)
                return false;
            m_character = static_cast<char>(va_arg(m_arguments, int));
            Pad(spec, {}, std::string_view(&m_character, 1));
            return true;
        case 's': return PrintText(spec);
        case 'f':
        case 'e':
        case 'g': return PrintDouble(spec, conversion);
        case 'F':
        case 'E':
        case 'G': {
            const std::size_t start = m_text.size();
            if (!PrintDouble(spec, static_cast<char>(conversion - 'A' + 'a')))
                return false;
            MakeUpper(start);
            return true;
        }
        default: return false;
        }
    }

    void MakeUpper(std::size_t start) {
        for (std::size_t i = start; i < m_text.size(); ++i) {
            if (m_text[i] >= 'a' && m_text[i] <= 'z')
                m_text[i] = static_cast<char>(m_text[i] - 'a' + 'A');
        }
    }

    void PrintSigned(Spec& spec) {
        using Size = Spec::Size;
        std::int64_t value = 0;
        switch (spec.size) {
        case Size::Char: value = static_cast<signed char>(va_arg(m_arguments, int)); break;
        case Size::Short: value = static_cast<short>(va_arg(m_arguments, int)); break;
        case Size::Int: value = va_arg(m_arguments, int); break;
        case Size::Long: value = va_arg(m_arguments, long); break;
        case Size::LongLong: value = va_arg(m_arguments, long long); break;
        case Size::Max: value = va_arg(m_arguments, std::intmax_t); break;
        case Size::Ptrdiff: value = va_arg(m_arguments, std::ptrdiff_t); break;
        }
        const auto bits = static_cast<std::uint64_t>(value);
        PrintInteger(spec, value < 0 ? 0 - bits : bits, 10, Sign(spec, value < 0));
    }

    void PrintUnsigned(Spec& spec, int base) {
        using Size = Spec::Size;
        std::uint64_t value = 0;
        switch (spec.size) {
        case Size::Char: value = static_cast<unsigned char>(va_arg(m_arguments, unsigned)); break;
        case Size::Short: value = static_cast<unsigned short>(va_arg(m_arguments, unsigned)); break;
        case Size::Int: value = va_arg(m_arguments, unsigned); break;
        case Size::Long: value = va_arg(m_arguments, unsigned long); break;
        case Size::LongLong: value = va_arg(m_arguments, unsigned long long); break;
        case Size::Max: value = va_arg(m_arguments, std::uintmax_t); break;
        case Size::Ptrdiff: value = va_arg(m_arguments, std::size_t); break;
        }
        PrintInteger(spec, value, base, {});
    }

    static std::string_view Sign(const Spec& spec, bool isNegative) {
        return isNegative ? "-" : spec.plus ? "+" : spec.blank ? " " : std::string_view();
    }

    void PrintInteger(Spec& spec, std::uint64_t value, int base, std::string_view sign) {
        char digits[24];
        const char* const end = std::to_chars(std::begin(digits), std::end(digits), value, base).ptr;
        std::string_view text(digits, static_cast<std::size_t>(end - digits));
        if (spec.precision < 0) {
            Pad(spec, sign, text);
            return;
        }
        if (spec.precision == 0 && value == 0)
            text = {};
        spec.zeros = false;
        std::string padded(static_cast<std::size_t>(spec.precision) -
                               std::min(static_cast<std::size_t>(spec.precision), text.size()),
                           '0');
        padded.append(text);
        Pad(spec, sign, padded);
    }

    bool PrintText(Spec& spec) {
        if (spec.size != Spec::Size::Int || spec.zeros)
            return false;
        const char* const text = va_arg(m_arguments, const char*);
        if (text == nullptr)
            return false; // the C library says it in its own way
        const std::size_t length = spec.precision < 0
                                       ? std::strlen(text)
                                       : static_cast<std::size_t>(std::find(text, text + spec.precision, '\0') - text);
        Pad(spec, {}, std::string_view(text, length));
        return true;
    }

    bool PrintDouble(Spec& spec, char conversion) {
        if ((spec.size != Spec::Size::Int && spec.size != Spec::Size::Long) || spec.precision > MostDigits)
            return false;
        const double value = va_arg(m_arguments, double);
        const std::string_view sign = Sign(spec, std::signbit(value));
        const double positive = std::fabs(value);
        if (!std::isfinite(value)) {
            spec.zeros = false;
            Pad(spec, sign, std::isnan(value) ? "nan" : "inf");
            return true;
        }
        const auto form = conversion == 'f'   ? std::chars_format::fixed
                          : conversion == 'e' ? std::chars_format::scientific
                                              : std::chars_format::general;
        constexpr int DefaultPrecision = 6;
        char digits[512]; // the largest has 309 in front of the point
        const char* const end = std::to_chars(std::begin(digits), std::end(digits), positive, form,
                                              spec.precision < 0 ? DefaultPrecision : spec.precision)
                                    .ptr;
        Pad(spec, sign, std::string_view(digits, static_cast<std::size_t>(end - digits)));
        return true;
    }

    void Pad(const Spec& spec, std::string_view sign, std::string_view text) {
        const std::size_t size = sign.size() + text.size();
        const auto width = static_cast<std::size_t>(spec.width);
        const std::size_t padding = width > size ? width - size : 0;
        if (padding != 0 && !spec.left && !spec.zeros)
            m_text.append(padding, ' ');
        m_text.append(sign);
        if (padding != 0 && !spec.left && spec.zeros)
            m_text.append(padding, '0');
        m_text.append(text);
        if (padding != 0 && spec.left)
            m_text.append(padding, ' ');
    }

    const char* m_at;
    std::va_list m_arguments;
    std::string m_text;
    char m_character = 0;
};

} // namespace

std::string LogPrint(const char* format, std::va_list arguments) {
    if (format == nullptr)
        return {};
    Printer printer(format, arguments);
    if (printer.Print())
        return printer.Text();
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length <= 0)
        return {};
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

} // namespace Qzc
