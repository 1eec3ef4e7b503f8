#pragma once

#include <string>
#include <vector>

/// What the program asks the system beside the library; a folder per system implements it.
namespace Motool {

enum class Channel { Output, Errors };

bool IsTerminal(Channel channel);

/// The columns of the terminal that the output goes to; 0 where there is none, or it does not tell.
int TerminalWidth();

/// Runs a program, which is looked for as a shell does, and waits for its end. Meanwhile the terminal's interrupt is
/// the program's to take, and what asks this process to end is handed on. Its exit status as a shell tells it: 128 and
/// the signal's number when one ended it; 127 when there is no such program, 126 when it cannot be run, each with the
/// system's words in `error`.
int RunProgram(const std::vector<std::string>& command, std::string& error);

} // namespace Motool
