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

// Prints formats that hold nothing but the plain conversions: nearly all that are logged.
class PlainPrinter {
public:
    PlainPrinter(const char* format, std::va_list arguments) : m_at(format) { va_copy(m_arguments, arguments); }
    ~PlainPrinter() { va_end(m_arguments); }
    PlainPrinter(const PlainPrinter&) = delete;
    PlainPrinter& operator=(const PlainPrinter&) = delete;

    /// False for a format that holds others.
    bool Print() {
        while (const char* const percent = std::strchr(m_at, '%')) {
            Append(std::string_view(m_at, static_cast<std::size_t>(percent - m_at)));
            m_at = percent + 1;
            if (!Convert())
                return false;
        }
        Append(m_at);
        return true;
    }

    KeldMBString Text() {
        if (m_text.empty())
            return KeldMBString(std::string_view(m_buffer, m_size));
        m_text.append(m_buffer, m_size);
        return KeldMBString(std::move(m_text));
    }

private:
    bool Take(const char* text) {
        const std::size_t length = std::strlen(text);
        if (std::strncmp(m_at, text, length) != 0)
            return false;
        m_at += length;
        return true;
    }

    bool Convert() {
        switch (*m_at++) {
        case '%': Append("%"); return true;
        case 's': return AppendText(va_arg(m_arguments, const char*));
        case 'c': {
            const char character = static_cast<char>(va_arg(m_arguments, int));
            Append(std::string_view(&character, 1));
            return true;
        }
        case 'd':
        case 'i': AppendNumber(va_arg(m_arguments, int)); return true;
        case 'u': AppendNumber(va_arg(m_arguments, unsigned)); return true;
        case 'x': AppendNumber(va_arg(m_arguments, unsigned), 16); return true;
        case 'f': return AppendFixed(6);
        case '.':
            if (*m_at < '0' || *m_at > '9' || m_at[1] != 'f')
                return false;
            m_at += 2;
            return AppendFixed(m_at[-2] - '0');
        default: --m_at; return ConvertLong();
        }
    }

    // NOLINTBEGIN(bugprone-branch-clone): what is one type here are two elsewhere
    bool ConvertLong() {
        if (Take("ld"))
            AppendNumber(va_arg(m_arguments, long));
        else if (Take("lu"))
            AppendNumber(va_arg(m_arguments, unsigned long));
        else if (Take("lld"))
            AppendNumber(va_arg(m_arguments, long long));
        else if (Take("llu"))
            AppendNumber(va_arg(m_arguments, unsigned long long));
        else if (Take("zu"))
            AppendNumber(va_arg(m_arguments, std::size_t));
        else
            return false;
        return true;
    }
    // NOLINTEND(bugprone-branch-clone)

    bool AppendText(const char* text) {
        if (text != nullptr) // the C library says it in its own way
            Append(text);
        return text != nullptr;
    }

    template <class Number>
    void AppendNumber(Number value, int base = 10) {
        char* const out = Reserve(24);
        m_size = static_cast<std::size_t>(std::to_chars(out, out + 24, value, base).ptr - m_buffer);
    }

    bool AppendFixed(int precision) {
        const double value = va_arg(m_arguments, double);
        if (AppendUsual(value, precision))
            return true;
#ifdef __cpp_lib_to_chars
        constexpr std::size_t Longest = 330; // 309 digits, a sign, a point, 9 digits
        char* const out = Reserve(Longest);
        const auto result = std::to_chars(out, out + Longest, value, std::chars_format::fixed, precision);
        m_size = static_cast<std::size_t>(result.ptr - m_buffer);
        return true;
#else
        return false;
#endif
    }

    // The numbers that are mostly logged, in whole numbers and exactly; the way that fits any number takes several
    // times as long. Ties go to the even digit, as the C library has them.
    bool AppendUsual(double value, int precision) {
        constexpr double Limit = 1e9;
        constexpr int Bits = 52; // of the part behind the point, from 1 on never more
        constexpr std::uint64_t One = std::uint64_t{1} << Bits;
        constexpr int Step = 3; // digits that may be taken at once: One * 1000 has 62 bits
        constexpr std::uint64_t Powers[Step + 1] = {1, 10, 100, 1000};
        const double size = std::fabs(value);
        if (!(size < Limit))
            return false;
        auto number = static_cast<std::uint64_t>(size);
        const double scaled = (size - static_cast<double>(number)) * static_cast<double>(One);
        auto rest = static_cast<std::uint64_t>(scaled);
        if (static_cast<double>(rest) != scaled)
            return false;
        for (int left = precision; left > 0; left -= Step) {
            const std::uint64_t power = Powers[std::min(left, Step)];
            rest *= power;
            number = number * power + (rest >> Bits);
            rest &= One - 1;
        }
        if (rest > One / 2 || (rest == One / 2 && number % 2 != 0))
            ++number;

        char digits[24];
        const auto places = static_cast<std::size_t>(precision);
        const auto length = static_cast<std::size_t>(std::to_chars(std::begin(digits), std::end(digits), number).ptr -
                                                     std::begin(digits));
        const std::size_t whole = length > places ? length - places : 0;
        char* out = Reserve(32);
        if (std::signbit(value))
            *out++ = '-';
        out = whole > 0 ? std::copy_n(digits, whole, out) : std::fill_n(out, 1, '0');
        if (places > 0) {
            *out++ = '.';
            out = std::fill_n(out, places - (length - whole), '0');
            out = std::copy_n(digits + whole, length - whole, out);
        }
        m_size = static_cast<std::size_t>(out - m_buffer);
        return true;
    }

    void Append(std::string_view text) {
        if (text.size() > sizeof(m_buffer)) {
            m_text.append(m_buffer, std::exchange(m_size, 0)).append(text);
            return;
        }
        std::copy(text.begin(), text.end(), Reserve(text.size()));
        m_size += text.size();
    }

    // The place for so many bytes, which are no more than the buffer.
    char* Reserve(std::size_t size) {
        if (size > sizeof(m_buffer) - m_size)
            m_text.append(m_buffer, std::exchange(m_size, 0));
        return m_buffer + m_size;
    }

    const char* m_at;
    std::va_list m_arguments;
    std::string m_text; ///< and behind it, what the buffer holds
    std::size_t m_size = 0;
    char m_buffer[800];
};

} // namespace

KeldMBString LogPrint(const char* format, std::va_list arguments) {
    if (format == nullptr)
        return {};
    PlainPrinter printer(format, arguments);
    if (printer.Print())
        return printer.Text();
    KeldMBString text;
    text.FormatV(format, arguments);
    return text;
}

} // namespace Qzc
