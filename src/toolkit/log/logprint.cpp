#include "toolkit/log/logprint.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

namespace Qzc {

namespace {

// What stands between the percent sign and the conversion.
struct Form {
    bool left = false;
    bool zeros = false;
    bool plus = false;
    bool blank = false;
    bool upper = false; ///< of letters that are digits or stand for a value
    int width = 0;
    int precision = -1; ///< none
    enum class Size { Char, Short, Int, Long, LongLong, Max, Ptrdiff } size = Size::Int;
};

constexpr int MostDigits = 64; // that a precision may ask for; there is no need here to be fast with more
constexpr int MostWidth = 1000;

class Printer {
public:
    Printer(const char* format, std::va_list arguments) : m_at(format) { va_copy(m_arguments, arguments); }
    ~Printer() { va_end(m_arguments); }
    Printer(const Printer&) = delete;
    Printer& operator=(const Printer&) = delete;

    /// False for what is left to vprintf.
    bool Print() {
        for (;;) {
            const char* const percent = std::strchr(m_at, '%');
            if (percent == nullptr) {
                Append(m_at);
                return true;
            }
            Append(std::string_view(m_at, static_cast<std::size_t>(percent - m_at)));
            m_at = percent + 1;
            Form form;
            if (!ReadForm(form) || !Convert(*m_at++, form))
                return false;
        }
    }
    KeldMBString Text() {
        if (m_text.empty())
            return KeldMBString(std::string_view(m_buffer, m_size));
        m_text.append(m_buffer, m_size);
        return KeldMBString(std::move(m_text));
    }

private:
    bool ReadForm(Form& form) {
        for (;; ++m_at) {
            switch (*m_at) {
            case '-': form.left = true; continue;
            case '0': form.zeros = true; continue;
            case '+': form.plus = true; continue;
            case ' ': form.blank = true; continue;
            default: break;
            }
            break;
        }
        if (!ReadNumber(form.width))
            return false;
        if (form.width < 0) {
            form.left = true;
            form.width = -form.width;
        }
        if (*m_at == '.') {
            ++m_at;
            form.precision = 0;
            if (!ReadNumber(form.precision))
                return false;
            form.precision = std::max(form.precision, -1);
        }
        ReadSize(form);
        return form.width <= MostWidth;
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

    void ReadSize(Form& form) {
        using Size = Form::Size;
        const char size = *m_at;
        if (std::strchr("hlzjtq", size) == nullptr || size == '\0')
            return;
        ++m_at;
        const bool isDouble = *m_at == size && (size == 'h' || size == 'l');
        m_at += isDouble ? 1 : 0;
        switch (size) {
        case 'h': form.size = isDouble ? Size::Char : Size::Short; break;
        case 'l': form.size = isDouble ? Size::LongLong : Size::Long; break;
        case 'q': form.size = Size::LongLong; break;
        case 'j': form.size = Size::Max; break;
        default: form.size = Size::Ptrdiff; break; // as long as size_t
        }
    }

    bool Convert(char conversion, Form& form) {
        switch (conversion) {
        case '%': Append("%"); return m_at[-2] == '%';
        case 'd':
        case 'i': PrintSigned(form); return true;
        case 'u': PrintUnsigned(form, 10); return true;
        case 'o': PrintUnsigned(form, 8); return true;
        case 'x': PrintUnsigned(form, 16); return true;
        case 'X':
            form.upper = true;
            PrintUnsigned(form, 16);
            return true;
        case 'c':
            if (form.size != Form::Size::Int || form.zeros)
                return false;
            m_character = static_cast<char>(va_arg(m_arguments, int));
            Pad(form, {}, std::string_view(&m_character, 1));
            return true;
        case 's': return PrintText(form);
        case 'f':
        case 'e':
        case 'g': return PrintDouble(form, conversion);
        case 'F':
        case 'E':
        case 'G': form.upper = true; return PrintDouble(form, static_cast<char>(conversion - 'A' + 'a'));
        default: return false;
        }
    }

    static void MakeUpper(char* begin, const char* end) {
        for (; begin != end; ++begin) {
            if (*begin >= 'a' && *begin <= 'z')
                *begin = static_cast<char>(*begin - 'a' + 'A');
        }
    }

    // NOLINTBEGIN(bugprone-branch-clone): what is one type here are two elsewhere

    void PrintSigned(Form& form) {
        using Size = Form::Size;
        std::int64_t value = 0;
        switch (form.size) {
        // NOLINTNEXTLINE(bugprone-signed-char-misuse): its sign is meant
        case Size::Char: value = static_cast<signed char>(va_arg(m_arguments, int)); break;
        case Size::Short: value = static_cast<short>(va_arg(m_arguments, int)); break;
        case Size::Int: value = va_arg(m_arguments, int); break;
        case Size::Long: value = va_arg(m_arguments, long); break;
        case Size::LongLong: value = va_arg(m_arguments, long long); break;
        case Size::Max: value = va_arg(m_arguments, std::intmax_t); break;
        case Size::Ptrdiff: value = va_arg(m_arguments, std::ptrdiff_t); break;
        }
        const auto bits = static_cast<std::uint64_t>(value);
        PrintInteger(form, value < 0 ? 0 - bits : bits, 10, Sign(form, value < 0));
    }

    void PrintUnsigned(Form& form, int base) {
        using Size = Form::Size;
        std::uint64_t value = 0;
        switch (form.size) {
        case Size::Char: value = static_cast<unsigned char>(va_arg(m_arguments, unsigned)); break;
        case Size::Short: value = static_cast<unsigned short>(va_arg(m_arguments, unsigned)); break;
        case Size::Int: value = va_arg(m_arguments, unsigned); break;
        case Size::Long: value = va_arg(m_arguments, unsigned long); break;
        case Size::LongLong: value = va_arg(m_arguments, unsigned long long); break;
        case Size::Max: value = va_arg(m_arguments, std::uintmax_t); break;
        case Size::Ptrdiff: value = va_arg(m_arguments, std::size_t); break;
        }
        PrintInteger(form, value, base, {});
    }

    // NOLINTEND(bugprone-branch-clone)

    static std::string_view Sign(const Form& form, bool isNegative) {
        return isNegative ? "-" : form.plus ? "+" : form.blank ? " " : std::string_view();
    }

    void PrintInteger(Form& form, std::uint64_t value, int base, std::string_view sign) {
        char digits[24];
        const char* const end = base == 10 ? std::to_chars(std::begin(digits), std::end(digits), value).ptr
                                           : std::to_chars(std::begin(digits), std::end(digits), value, base).ptr;
        if (form.upper)
            MakeUpper(digits, end);
        std::string_view text(digits, static_cast<std::size_t>(end - digits));
        if (form.precision < 0) {
            Pad(form, sign, text);
            return;
        }
        if (form.precision == 0 && value == 0)
            text = {};
        form.zeros = false;
        std::string padded(static_cast<std::size_t>(form.precision) -
                               std::min(static_cast<std::size_t>(form.precision), text.size()),
                           '0');
        padded.append(text);
        Pad(form, sign, padded);
    }

    bool PrintText(Form& form) {
        if (form.size != Form::Size::Int || form.zeros)
            return false;
        const char* const text = va_arg(m_arguments, const char*);
        if (text == nullptr)
            return false; // the C library says it in its own way
        const std::size_t length = form.precision < 0
                                       ? std::strlen(text)
                                       : static_cast<std::size_t>(std::find(text, text + form.precision, '\0') - text);
        Pad(form, {}, std::string_view(text, length));
        return true;
    }

    bool PrintDouble(Form& form, char conversion) {
        if ((form.size != Form::Size::Int && form.size != Form::Size::Long) || form.precision > MostDigits)
            return false;
        const double value = va_arg(m_arguments, double);
        const std::string_view sign = Sign(form, std::signbit(value));
        const double positive = std::fabs(value);
        if (!std::isfinite(value)) {
            form.zeros = false;
            if (form.upper)
                Pad(form, sign, std::isnan(value) ? "NAN" : "INF");
            else
                Pad(form, sign, std::isnan(value) ? "nan" : "inf");
            return true;
        }
        constexpr int DefaultPrecision = 6;
        const int precision = form.precision < 0 ? DefaultPrecision : form.precision;
        char digits[512]; // the largest has 309 in front of the point
        char* end = conversion == 'f' ? PutFixed(digits, positive, precision) : nullptr;
        if (end == nullptr) {
            const auto notation = conversion == 'f'   ? std::chars_format::fixed
                                  : conversion == 'e' ? std::chars_format::scientific
                                                      : std::chars_format::general;
            end = std::to_chars(std::begin(digits), std::end(digits), positive, notation, precision).ptr;
        }
        if (form.upper)
            MakeUpper(digits, end);
        Pad(form, sign, std::string_view(digits, static_cast<std::size_t>(end - digits)));
        return true;
    }

    // What is left of the point and what is right of it are whole numbers that a double holds, and how the latter is
    // rounded can be told exactly: the product's own rounding error is a double, too. Null for other values.
    static char* PutFixed(char* out, double value, int precision) {
        constexpr double Powers[] = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
        constexpr double MostWhole = 1e15;
        if (precision >= static_cast<int>(std::size(Powers)) || value >= MostWhole)
            return nullptr;
        const double power = Powers[precision];
        auto whole = static_cast<std::uint64_t>(value);
        const double part = value - static_cast<double>(whole);
        const double product = part * power;
        const double error = std::fma(part, power, -product);
        auto parts = static_cast<std::uint64_t>(product);
        const double aboveHalf = product - static_cast<double>(parts) - 0.5; // but for the error
        if (aboveHalf > -error || (aboveHalf == -error && (precision == 0 ? whole : parts) % 2 != 0))
            ++parts;
        const auto limit = static_cast<std::uint64_t>(power);
        if (parts >= limit) {
            parts -= limit;
            ++whole;
        }
        out = std::to_chars(out, out + 20, whole).ptr;
        if (precision == 0)
            return out;
        *out++ = '.';
        for (int i = precision; i-- > 0; parts /= 10)
            out[i] = static_cast<char>('0' + parts % 10);
        return out + precision;
    }

    void Pad(const Form& form, std::string_view sign, std::string_view text) {
        const std::size_t size = sign.size() + text.size();
        const auto width = static_cast<std::size_t>(form.width);
        const std::size_t padding = width > size ? width - size : 0;
        if (padding != 0 && !form.left && !form.zeros)
            AppendMany(padding, ' ');
        Append(sign);
        if (padding != 0 && !form.left && form.zeros)
            AppendMany(padding, '0');
        Append(text);
        if (padding != 0 && form.left)
            AppendMany(padding, ' ');
    }

    void Append(std::string_view text) {
        if (text.size() > sizeof(m_buffer) - m_size) {
            m_text.append(m_buffer, m_size).append(text);
            m_size = 0;
            return;
        }
        std::copy(text.begin(), text.end(), m_buffer + m_size);
        m_size += text.size();
    }
    void AppendMany(std::size_t count, char c) {
        for (; count > 0; --count)
            Append(std::string_view(&c, 1));
    }

    const char* m_at;
    std::va_list m_arguments;
    std::string m_text; ///< and behind it, what the buffer holds
    std::size_t m_size = 0;
    char m_buffer[400];
    char m_character = 0;
};

} // namespace

KeldMBString LogPrint(const char* format, std::va_list arguments) {
    if (format == nullptr)
        return {};
    Printer printer(format, arguments);
    if (printer.Print())
        return printer.Text();
    KeldMBString text;
    text.FormatV(format, arguments);
    return text;
}

} // namespace Qzc
