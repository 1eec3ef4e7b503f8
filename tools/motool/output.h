#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/keldcharset.h"
#include "base/keldmbstring.h"

/// What the program prints. Texts come in the current charset, and are printed in the terminal's, which is that of the
/// locale; characters that it lacks become question marks.
namespace Motool {

/// The exit statuses.
enum Status : int { Done = 0, Failed = 1, WrongUsage = 2 };

/// Before anything else; gives the arguments of the command line. The terminal's charset is the current one at that
/// moment, or any where the system itself draws the characters.
std::vector<std::string> Start(int argc, char** argv);

/// Makes UTF-8 the current charset, for what the terminal's cannot hold. False when it was already.
bool SwitchToUtf8();
/// An argument of the command line in the charset that is the current one by now.
KELD::KeldMBString FromTerminal(const std::string& argument);

// ---- Standard output

bool IsColoured(); ///< on a terminal
/// As it stands, but on a terminal without the control characters that would command it.
void Print(std::string_view text);
void PrintLine(std::string_view text);
void PrintBytes(std::string_view bytes); ///< no text: unchanged
bool FlushOutput();                      ///< false when something printed was lost

// ---- Standard error

/// "motool: MESSAGE"; `Failed`.
int Fail(const std::string& message);
int FailUsage(const std::string& message); ///< `WrongUsage`
void Warn(const std::string& message);

// ---- Texts

/// On one line, and without control characters: they stand as \n, \t, \x1b; bytes that are no text of the charset as
/// \xff. With a width, cut to so many columns.
std::wstring OneLine(std::string_view text, int width = -1);
int Columns(std::wstring_view text); ///< on a terminal
std::string ToTerminal(std::wstring_view text);
std::string Escaped(std::string_view text);     ///< OneLine, for messages
std::string Shown(const std::string& argument); ///< the same of what the command line gave
std::string Number(std::int64_t number);
std::string Plural(std::int64_t number, const char* one, const char* many); ///< "3 items"

/// A JSON string, quotes included. In ASCII but where the terminal's charset is UTF-8.
std::string Json(std::string_view text);

enum class Colour { None, Bold, Grey, Green, Yellow, Red, Fatal };
std::string Coloured(std::string_view terminalText, Colour colour); ///< as it stands where there is no terminal

/// Rows of cells, each column as wide as its widest cell. On a terminal a row is cut to its width.
class Table {
public:
    explicit Table(std::vector<std::string> headings) : m_headings(std::move(headings)) {}

    void AlignRight(std::size_t column) { m_right.push_back(column); }
    /// The colour is that of one cell.
    void Add(const std::vector<std::string>& cells, Colour colour = Colour::None, std::size_t colouredCell = 0);
    bool IsEmpty() const { return m_rows.empty(); }
    /// Prints what was added since. The columns get no narrower from one time to the next, and the headings stand once.
    void Print();

private:
    struct Row {
        std::vector<std::wstring> cells;
        Colour colour = Colour::None;
        std::size_t colouredCell = 0;
    };
    void PrintRow(const Row& row, bool isHeading) const;

    std::vector<std::string> m_headings;
    std::vector<std::size_t> m_right;
    std::vector<int> m_widths;
    std::vector<Row> m_rows;
    bool m_hasHeading = false;
};

/// A bar on standard error, if that is a terminal, of what takes more than a moment.
class Progress {
public:
    Progress();
    ~Progress(); ///< wipes it away
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Show(std::int64_t done, std::int64_t total);

private:
    using Clock = std::chrono::steady_clock;

    bool m_isTerminal;
    bool m_isShown = false;
    Clock::time_point m_next;
};

/// A bar of a chart, in the characters that the terminal has.
std::string Bar(std::int64_t value, std::int64_t most, int width);

} // namespace Motool
