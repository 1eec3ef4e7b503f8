// The toolkit at the command line. A file for each command; what they share is in output.h.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "commands.h"

namespace {

using namespace Motool;

/// CLI11's own pages, with what is missing in them: how a failure is told.
int ReportParsing(const CLI::App& program, const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
        return program.exit(error) == 0 && FlushOutput() ? Done : Failed;
    return FailUsage(Escaped(error.what()) + "\nTry motool --help, or motool COMMAND --help.");
}

// What stands behind --run is the command to run, whatever it looks like.
std::vector<std::string> TakeOffRun(std::vector<std::string>& arguments) {
    const bool isLock = !arguments.empty() && arguments[0] == "lock";
    const auto run = isLock ? std::find(arguments.begin(), arguments.end(), "--run") : arguments.end();
    if (run == arguments.end())
        return {};
    std::vector<std::string> command(std::next(run), arguments.end());
    arguments.erase(std::next(run), arguments.end());
    return command;
}

int Run(std::vector<std::string> arguments) {
    CLI::App program("Looks at what an engine built on MoToolkit has: XML, its configuration, logs, styles, texts and "
                     "locks.",
                     "motool");
    Chosen chosen;
    const std::vector<std::string> run = TakeOffRun(arguments);
    program.allow_windows_style_options(false); // what begins with a slash is a path everywhere
    program.set_version_flag("--version", "motool " MOTOOL_VERSION, "print the version and exit");
    program.set_help_flag("-h,--help", "print this help and exit");
    std::string generated;
    program.add_option("--generate", generated)->group("")->check(CLI::IsMember({"man", "completion"}));
    AddXmlCommand(program, chosen);
    AddConfigCommand(program, chosen);
    AddLogCommand(program, chosen);
    AddStyleCommand(program, chosen);
    AddTextCommand(program, chosen);
    AddLockCommand(program, chosen, run);
    program.require_subcommand(0, 1);
    program.footer(
        "Exit status: 0 done, 1 not found or a check failed, 2 wrong usage.\n\nExample:\n  motool log app.log "
        "--level warning");
    std::reverse(arguments.begin(), arguments.end()); // as CLI11 takes them
    try {
        program.parse(arguments);
    } catch (const CLI::ParseError& error) {
        return ReportParsing(program, error);
    }
    if (!generated.empty())
        PrintBytes(generated == "man" ? ManPage(program) : Completion(program));
    else if (chosen == nullptr)
        return FailUsage("no command is given\nTry motool --help.");
    const int status = chosen != nullptr ? chosen() : Done;
    if (!FlushOutput())
        return Fail("not all of the output could be written");
    return status;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return Run(Start(argc, argv));
    } catch (const std::bad_alloc&) {
        std::fputs("motool: there is not enough memory\n", stderr);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "motool: %s\n", error.what());
    }
    return Failed;
}
