#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "output.h"

/// A function for each command, which adds it to the program. A command that was given puts what it does into `chosen`;
/// its result is the exit status.
namespace Motool {

using Chosen = std::function<int()>;

void AddXmlCommand(CLI::App& program, Chosen& chosen);
void AddConfigCommand(CLI::App& program, Chosen& chosen);
void AddLogCommand(CLI::App& program, Chosen& chosen);
void AddStyleCommand(CLI::App& program, Chosen& chosen);
void AddTextCommand(CLI::App& program, Chosen& chosen);
/// `run` is what stands behind --run, which is no option of this program.
void AddLockCommand(CLI::App& program, Chosen& chosen, const std::vector<std::string>& run);

/// A command whose options are a `Options`, and which `run` does with them.
template <class Options>
CLI::App& AddCommand(CLI::App& program, Chosen& chosen, const char* name, const char* description, const char* examples,
                     const std::shared_ptr<Options>& options, int (*run)(const Options&)) {
    CLI::App& command = *program.add_subcommand(name, description);
    command.footer(examples);
    command.callback([&chosen, options, run] { chosen = [options, run] { return run(*options); }; });
    return command;
}

/// An option that may be given several times, each time with one value.
inline CLI::Option* AddRepeated(CLI::App& command, const char* names, std::vector<std::string>& values,
                                const char* description) {
    return command.add_option(names, values, description)->allow_extra_args(false);
}

/// What the man page and the completion are made of stands in the program itself: these print them.
std::string ManPage(const CLI::App& program);
std::string Completion(const CLI::App& program);

} // namespace Motool
