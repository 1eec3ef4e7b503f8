#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/keldcharset.h"
#include "base/keldmbstring.h"

/// What the program asks the system beside the library; a folder per system implements it.
namespace Motool {

/// The command line without the program's name, in the current charset. Where the system has it as characters and that
/// charset lacks one of them, the current charset is UTF-8 from then on.
std::vector<std::string> CommandLine(int argc, char** argv);

/// A path as the command line gave it, as the library takes it at this moment: the same bytes where a path is bytes,
/// the same text where it is text.
KELD::KeldMBString PathOf(const std::string& argument);

/// The folder that relative paths start from; empty when the system does not tell.
KELD::KeldMBString CurrentFolder();

enum class Channel { Output, Errors };

/// Before anything is written: lines end as they are written, and a terminal takes colours if it can. The charset of
/// what is written from then on.
KELD::KELDCharset::Charset StartWriting();
/// Writes, as fwrite does; false when something was lost.
bool Write(Channel channel, std::string_view bytes);

/// A terminal that takes colours.
bool IsTerminal(Channel channel);

/// The columns that a line on the terminal may have which the output goes to; 0 where there is none, or it does not
/// tell.
int TerminalWidth();

/// Runs a program, which is looked for as a shell does, and waits for its end. Meanwhile the terminal's interrupt is
/// the program's to take, and what asks this process to end is handed on. Its exit status as a shell tells it: 128 and
/// the signal's number when one ended it; 127 when there is no such program, 126 when it cannot be run, each with the
/// system's words in `error`.
int RunProgram(const std::vector<std::string>& command, std::string& error);

} // namespace Motool
