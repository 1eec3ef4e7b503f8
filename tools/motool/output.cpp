#include "output.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "letters.h"
#include "stream/qztrace.h"
#include "system.h"
#include "toolkit/qzstringw.h"
#include "toolkit/qztextcodec.h"
#include "toolkit/qztoolkit.h"

using namespace Qzc;

namespace Motool {

namespace {

KELDCharset::Charset s_arguments = KELDCharset::UTF8;
KELDCharset::Charset s_terminal = KELDCharset::UTF8;
bool s_isTerminal = false;
int s_width = 0;
bool s_isLost = false;

bool IsAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool IsControl(std::uint32_t c) {
    // U+2028 and U+2029 end lines; the others in the list turn the direction of what follows.
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069) ||
           c == 0x2028 || c == 0x2029;
}

// A text of the current charset; a byte that is none of it is told apart by its value from this on.
constexpr wchar_t BadByte = 0xDC00;

// Without zero bytes.
void AppendText(std::wstring& wide, std::string_view text) {
    if (IsAscii(text)) {
        wide.append(text.begin(), text.end());
        return;
    }
    const std::wstring all = ToWide(text, KELDCharset::Current);
    if (!all.empty()) {
        wide += all;
        return;
    }
    QzTextCodec codec(WideCharset, QzToolkit::GetCurCharset());
    constexpr std::size_t PieceSize = 4096;
    constexpr std::size_t LongestCharacter = 8;
    while (!text.empty()) {
        const std::string_view piece = text.substr(0, PieceSize);
        const auto good =
            static_cast<std::size_t>(codec.GetConvertibleLength(piece.data(), static_cast<int>(piece.size())));
        if (good != 0)
            wide += ToWide(piece.substr(0, good), KELDCharset::Current);
        // A character that the piece cuts in two comes again with the next.
        const bool isCut = good != 0 && piece.size() < text.size() && good + LongestCharacter > piece.size();
        text.remove_prefix(good);
        if (!isCut && !text.empty()) {
            wide += static_cast<wchar_t>(BadByte + static_cast<unsigned char>(text[0]));
            text.remove_prefix(1);
        }
    }
}

std::wstring Wide(std::string_view text) {
    std::wstring wide;
    for (;;) {
        const std::size_t zero = std::min(text.find('\0'), text.size());
        AppendText(wide, text.substr(0, zero));
        if (zero == text.size())
            return wide;
        wide += L'\0';
        text.remove_prefix(zero + 1);
    }
}

int ColumnsOf(std::uint32_t value) {
    const auto isIn = [&](std::uint32_t first, std::uint32_t last) { return value >= first && value <= last; };
    if (isIn(0x300, 0x36F) || isIn(0x200B, 0x200F) || isIn(0x20D0, 0x20FF) || isIn(0xFE00, 0xFE0F) || value == 0xFEFF)
        return 0;
    const bool isWide = isIn(0x1100, 0x115F) || isIn(0x2E80, 0x303E) || isIn(0x3041, 0xA4CF) || isIn(0xA960, 0xA97F) ||
                        isIn(0xAC00, 0xD7A3) || isIn(0xF900, 0xFAFF) || isIn(0xFE30, 0xFE6F) || isIn(0xFF00, 0xFF60) ||
                        isIn(0xFFE0, 0xFFE6) || isIn(0x1F300, 0x1F64F) || isIn(0x1F900, 0x1F9FF) ||
                        isIn(0x20000, 0x3FFFD);
    return isWide ? 2 : 1;
}

std::wstring Hexadecimal(unsigned int value) {
    const wchar_t* const digits = L"0123456789abcdef";
    if (value < 0x100)
        return {L'\\', L'x', digits[value >> 4], digits[value & 15]};
    return {
        L'\\', L'u', digits[value >> 12 & 15], digits[value >> 8 & 15], digits[value >> 4 & 15], digits[value & 15]};
}

bool IsBadByte(std::uint32_t c) {
    return c >= BadByte + 0x80 && c <= BadByte + 0xFF;
}

const char* Code(Colour colour) {
    switch (colour) {
    case Colour::Bold: return "\x1b[1m";
    case Colour::Grey: return "\x1b[90m";
    case Colour::Green: return "\x1b[32m";
    case Colour::Yellow: return "\x1b[33m";
    case Colour::Red: return "\x1b[31m";
    case Colour::Fatal: return "\x1b[1;37;41m";
    case Colour::None: break;
    }
    return "";
}

} // namespace

std::vector<std::string> Start(int argc, char** argv) {
    SetTraceHandler([](const char*) {}); // what fails is told by the command that it fails
    s_terminal = StartWriting();
    s_isTerminal = IsTerminal(Channel::Output);
    s_width = s_isTerminal ? TerminalWidth() : 0;
    std::vector<std::string> arguments = CommandLine(argc, argv);
    s_arguments = QzToolkit::GetCurCharset();
    return arguments;
}

bool SwitchToUtf8() {
    return QzToolkit::GetCurCharset() != KELDCharset::UTF8 && QzToolkit::SetCurCharset(KELDCharset::UTF8);
}

KeldMBString FromTerminal(const std::string& argument) {
    KeldMBString text{std::string_view(argument)};
    KeldMBString converted;
    if (QzToolkit::GetCurCharset() == s_arguments ||
        QzTextCodec(QzToolkit::GetCurCharset(), s_arguments).Convert(converted, text) == 0)
        return text;
    return converted;
}

bool IsColoured() {
    return s_isTerminal;
}

std::wstring ToWide(std::string_view text, KELDCharset::Charset charset) {
    QzStringW converted;
    if constexpr (WideCharset == KELDCharset::Wide) {
        converted.FromString(KeldMBString(text), charset);
        return std::wstring(converted.View());
    }
    KeldMBString units;
    QzTextCodec(WideCharset, charset == KELDCharset::Current ? QzToolkit::GetCurCharset() : charset)
        .Convert(units, KeldMBString(text));
    std::wstring wide(static_cast<std::size_t>(units.GetLength()) / sizeof(wchar_t), L'\0');
    std::memcpy(wide.data(), units.Cstr(), wide.size() * sizeof(wchar_t));
    return wide;
}

std::string FromWide(std::wstring_view text, KELDCharset::Charset charset) {
    if constexpr (WideCharset == KELDCharset::Wide)
        return std::string(QzStringW(text).ToString(charset).View());
    KeldMBString converted;
    const int size = static_cast<int>(text.size() * sizeof(wchar_t));
    QzTextCodec(charset == KELDCharset::Current ? QzToolkit::GetCurCharset() : charset, WideCharset)
        .Convert(converted, reinterpret_cast<const char*>(text.data()), size);
    return std::string(converted.View());
}

void PrintBytes(std::string_view bytes) {
    if (!Write(Channel::Output, bytes))
        s_isLost = true;
}

void Print(std::string_view text) {
    const bool isPlain = std::all_of(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x7F) || c == '\n' ||
               c == '\t';
    });
    if (isPlain || (!s_isTerminal && QzToolkit::GetCurCharset() == s_terminal)) {
        PrintBytes(text);
        return;
    }
    std::wstring safe;
    ForEachLetter(Wide(text), [&](std::wstring_view letter) {
        const std::uint32_t c = LetterValue(letter);
        if (IsBadByte(c))
            safe += Hexadecimal(c - BadByte);
        else if (s_isTerminal && IsControl(c) && c != L'\n' && c != L'\t')
            safe += Hexadecimal(c);
        else
            safe += letter;
    });
    PrintBytes(ToTerminal(safe));
}

void PrintLine(std::string_view text) {
    Print(text);
    PrintBytes("\n");
}

bool FlushOutput() {
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 && !s_isLost;
}

void Warn(const std::string& message) {
    std::fflush(stdout); // so that both stand in order where they meet
    Write(Channel::Errors, "motool: " + message + "\n");
}

int Fail(const std::string& message) {
    Warn(message);
    return Failed;
}

int FailUsage(const std::string& message) {
    Warn(message);
    return WrongUsage;
}

std::wstring OneLine(std::string_view text, int width) {
    std::wstring line;
    int columns = 0;
    // No more than could be shown is looked at.
    if (width >= 0)
        text = text.substr(0, static_cast<std::size_t>(width) * 8 + 16);
    const std::wstring all = Wide(text);
    for (std::wstring_view rest = all; !rest.empty();) {
        std::wstring shown(rest.substr(0, LetterLength(rest)));
        rest.remove_prefix(shown.size());
        const std::uint32_t c = LetterValue(shown);
        if (c == L'\n')
            shown = L"\\n";
        else if (c == L'\t')
            shown = L"\\t";
        else if (c == L'\r')
            shown = L"\\r";
        else if (IsBadByte(c))
            shown = Hexadecimal(c - BadByte);
        else if (IsControl(c))
            shown = Hexadecimal(c);
        columns += Columns(shown);
        if (width >= 0 && columns > width) {
            while (!line.empty() && Columns(line) > width - 1)
                DropLastLetter(line);
            return width > 0 ? line + L'~' : std::wstring();
        }
        line += shown;
    }
    return line;
}

int Columns(std::wstring_view text) {
    int columns = 0;
    ForEachLetter(text, [&](std::wstring_view letter) { columns += ColumnsOf(LetterValue(letter)); });
    return columns;
}

std::string ToTerminal(std::wstring_view text) {
    std::string bytes;
    if (std::all_of(text.begin(), text.end(), [](wchar_t c) { return UnitValue(c) < 0x80; })) {
        for (const wchar_t c : text)
            bytes += static_cast<char>(c);
        return bytes;
    }
    const bool hasZero = text.find(L'\0') != std::wstring_view::npos;
    std::string whole = hasZero ? std::string() : FromWide(text, s_terminal);
    if (!whole.empty())
        return whole;
    ForEachLetter(text, [&](std::wstring_view letter) {
        const std::uint32_t c = LetterValue(letter);
        if (c < 0x80) {
            bytes += static_cast<char>(c);
            return;
        }
        const std::string one = FromWide(letter, s_terminal);
        bytes += one.empty() ? "?" : one;
    });
    return bytes;
}

std::string Escaped(std::string_view text) {
    return ToTerminal(OneLine(text));
}

std::string Shown(const std::string& argument) {
    return Escaped(FromTerminal(argument).View());
}

std::string Number(std::int64_t number) {
    return std::to_string(number);
}

std::string Plural(std::int64_t number, const char* one, const char* many) {
    return Number(number) + ' ' + (number == 1 ? one : many);
}

std::string Json(std::string_view text) {
    std::wstring json = L"\"";
    std::string result;
    const bool isUtf8 = s_terminal == KELDCharset::UTF8;
    ForEachLetter(Wide(text), [&](std::wstring_view letter) {
        const std::uint32_t value = LetterValue(letter);
        if (value == L'"' || value == L'\\') {
            json += L'\\';
            json += letter;
        } else if (value == L'\n') {
            json += L"\\n";
        } else if (value == L'\t') {
            json += L"\\t";
        } else if (IsBadByte(value)) {
            json += L"\\ufffd";
        } else if (value < 0x20 || value == 0x7F ||
                   (value >= 0x80 && value < 0x10000 && (!isUtf8 || IsControl(value)))) {
            const std::wstring digits = Hexadecimal(value | 0x10000).substr(2);
            json += L"\\u" + digits;
        } else if (value >= 0x10000 && !isUtf8) {
            const std::uint32_t offset = value - 0x10000;
            json += Hexadecimal(0xD800 + (offset >> 10)) + Hexadecimal(0xDC00 + (offset & 0x3FF));
        } else {
            json += letter;
        }
    });
    return ToTerminal(json + L'"');
}

std::string Coloured(std::string_view terminalText, Colour colour) {
    if (!s_isTerminal || colour == Colour::None)
        return std::string(terminalText);
    return Code(colour) + std::string(terminalText) + "\x1b[0m";
}

// ---- Table

void Table::Add(const std::vector<std::string>& cells, Colour colour, std::size_t colouredCell) {
    Row row;
    row.colour = colour;
    row.colouredCell = colouredCell;
    m_widths.resize(std::max(m_widths.size(), cells.size()), 0);
    for (std::size_t i = 0; i < cells.size(); ++i) {
        row.cells.push_back(OneLine(cells[i], s_width > 0 ? s_width : -1));
        if (i + 1 < cells.size())
            m_widths[i] = std::max(m_widths[i], Columns(row.cells[i]));
    }
    m_rows.push_back(std::move(row));
}

void Table::PrintRow(const Row& row, bool isHeading) const {
    constexpr int Gap = 2;
    std::string line;
    int used = 0;
    for (std::size_t i = 0; i < row.cells.size() && (s_width == 0 || used < s_width); ++i) {
        const bool isLast = i + 1 == row.cells.size();
        std::wstring cell = row.cells[i];
        if (s_width > 0 && used + Columns(cell) > s_width) {
            while (!cell.empty() && used + Columns(cell) > s_width - 1)
                DropLastLetter(cell);
            cell += L'~';
        }
        const auto blanks = static_cast<std::size_t>(isLast ? 0 : std::max(m_widths[i] - Columns(cell), 0));
        const std::string text = Coloured(ToTerminal(cell), i == row.colouredCell ? row.colour : Colour::None);
        const bool isRight = std::find(m_right.begin(), m_right.end(), i) != m_right.end();
        line += isRight ? std::string(blanks, ' ') + text : text + std::string(blanks, ' ');
        line.append(isLast ? 0 : Gap, ' ');
        used += Columns(cell) + static_cast<int>(blanks) + Gap;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    PrintBytes(Coloured(line, isHeading ? Colour::Bold : Colour::None) + '\n');
}

void Table::Print() {
    Row heading;
    m_widths.resize(std::max(m_widths.size(), m_headings.size()), 0);
    for (std::size_t i = 0; i < m_headings.size(); ++i) {
        heading.cells.push_back(OneLine(m_headings[i]));
        m_widths[i] = std::max(m_widths[i], Columns(heading.cells[i]));
    }
    if (!m_hasHeading && !m_headings.empty())
        PrintRow(heading, true);
    m_hasHeading = true;
    for (const Row& row : m_rows)
        PrintRow(row, false);
    m_rows.clear();
}

// ---- Progress

Progress::Progress()
    : m_isTerminal(IsTerminal(Channel::Errors)), m_next(Clock::now() + std::chrono::milliseconds(300)) {}

Progress::~Progress() {
    if (m_isShown)
        Write(Channel::Errors, "\r\x1b[K");
}

void Progress::Show(std::int64_t done, std::int64_t total) {
    if (!m_isTerminal || total <= 0 || Clock::now() < m_next)
        return;
    m_next = Clock::now() + std::chrono::milliseconds(100);
    m_isShown = true;
    constexpr int Width = 40;
    const double part = std::clamp(static_cast<double>(done) / static_cast<double>(total), 0.0, 1.0);
    const auto filled = static_cast<std::size_t>(part * Width);
    std::string line = "\r[" + std::string(filled, '#') + std::string(Width - filled, '.') + "] ";
    line += Number(static_cast<std::int64_t>(part * 100)) + "% of " + Number(total / 1000000) + " MB\x1b[K";
    Write(Channel::Errors, line);
    std::fflush(stderr);
}

std::string Bar(std::int64_t value, std::int64_t most, int width) {
    const auto eighths =
        most > 0 ? static_cast<int>(static_cast<double>(value) / static_cast<double>(most) * width * 8) : 0;
    const int whole = std::max(eighths, value > 0 ? 1 : 0);
    std::wstring blocks(static_cast<std::size_t>(whole / 8), L'\u2588');
    if (whole % 8 != 0)
        blocks += static_cast<wchar_t>(0x2590 - whole % 8);
    if (blocks.empty() || !FromWide(L"\u2588\u258f", s_terminal).empty())
        return ToTerminal(blocks);
    return std::string(static_cast<std::size_t>((whole + 7) / 8), '#');
}

} // namespace Motool
