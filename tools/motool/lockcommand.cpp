#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>

#include "commands.h"
#include "system.h"
#include "toolkit/qzerrorobj.h"
#include "toolkit/qzprocess.h"

using namespace Qzc;

namespace Motool {

namespace {

struct LockOptions {
    std::string name;
    std::string group;
    bool isReading = false;
    double timeout = -1; ///< seconds; below 0: none
    bool isJson = false;
    bool isRun = false;
    std::vector<std::string> command;
};

// What the library's log says of the last failure, if anything.
std::string Why() {
    QzErrorObj::Entry entry;
    return QzErrorObj::GetInstance().GetAt(0, entry) ? ": " + Escaped(entry.m_strMessage.View()) : std::string();
}

// ---- Who has it

const char* StateOf(const QzProcessState::Opener& opener) {
    return opener.m_bWriting ? "writing" : opener.m_bReading ? "reading" : "open";
}

std::string ProcessOf(const QzProcessState::Opener& opener) {
    return opener.m_nProcessID != 0 ? Number(opener.m_nProcessID) : "unknown";
}

void PrintJson(const QzProcessState& state) {
    std::string openers;
    for (const QzProcessState::Opener& opener : state.m_openers)
        openers += (openers.empty() ? "" : ", ") +
                   ("{\"process\": " + (opener.m_nProcessID != 0 ? Number(opener.m_nProcessID) : "null")) +
                   ", \"state\": " + Json(StateOf(opener)) + "}";
    PrintBytes("{\"stamp\": " + Number(static_cast<std::int64_t>(state.m_nStamp)) + ", \"openings\": " +
               Number(static_cast<std::int64_t>(state.m_nOpenings)) + ", \"openers\": [" + openers + "]}\n");
}

int Show(const LockOptions& options) {
    QzProcessState state;
    if (!QzProcess::GetState(KeldMBString(options.name), state, KeldMBString(options.group))) {
        const std::string why = Why();
        return Fail(why.empty() ? "no process has " + Shown(options.name) + " open" : Shown(options.name) + why);
    }
    if (options.isJson) {
        PrintJson(state);
        return Done;
    }
    const auto count = [&](auto is) { return std::count_if(state.m_openers.begin(), state.m_openers.end(), is); };
    const auto readers = count([](const QzProcessState::Opener& opener) { return opener.m_bReading; });
    const auto writers = count([](const QzProcessState::Opener& opener) { return opener.m_bWriting; });
    PrintLine("stamp " + Number(static_cast<std::int64_t>(state.m_nStamp)) + ", opened " +
              Plural(static_cast<std::int64_t>(state.m_nOpenings), "time", "times") + ", locked " +
              (writers > 0   ? std::string("for writing")
               : readers > 0 ? "by " + Plural(readers, "reader", "readers")
                             : std::string("by nobody")));
    Table table({"PROCESS", "STATE"});
    table.AlignRight(0);
    for (const QzProcessState::Opener& opener : state.m_openers)
        table.Add({ProcessOf(opener), StateOf(opener)},
                  opener.m_bWriting   ? Colour::Red
                  : opener.m_bReading ? Colour::Green
                                      : Colour::None,
                  1);
    table.Print();
    return Done;
}

// ---- Under it

bool Lock(QzProcess& lock, const LockOptions& options) {
    if (options.timeout >= 0) {
        const auto milliseconds = static_cast<unsigned int>(std::llround(options.timeout * 1000));
        return options.isReading ? lock.TimedReaderLock(milliseconds, false)
                                 : lock.TimedWriterLock(milliseconds, false);
    }
    // A plain lock gives up some time, too; there is no end to wait for here.
    constexpr unsigned int Long = 600000;
    while (!(options.isReading ? lock.TimedReaderLock(Long, false) : lock.TimedWriterLock(Long, false))) {
    }
    return true;
}

int Run(const LockOptions& options) {
    if (options.command.empty())
        return FailUsage("--run wants a command behind it");
    QzProcess lock;
    if (lock.ProcessLockInit(KeldMBString(options.name), KeldMBString(options.group)) == 0)
        return Fail(Shown(options.name) + " cannot be opened" + Why());
    if (!Lock(lock, options))
        return Fail(Shown(options.name) + " was not free in time");
    std::string error;
    const int status = RunProgram(options.command, error);
    if (!error.empty())
        Warn(Shown(options.command[0]) + ": " + error);
    return status;
}

int RunLock(const LockOptions& options) {
    if (options.isRun)
        return options.isJson ? FailUsage("--json is for the lock's state, not for --run") : Run(options);
    if (options.isReading || options.timeout >= 0)
        return FailUsage("--read and --timeout are for --run");
    return Show(options);
}

} // namespace

void AddLockCommand(CLI::App& program, Chosen& chosen, const std::vector<std::string>& run) {
    constexpr double LongestTimeout = 1000000;
    const auto options = std::make_shared<LockOptions>();
    options->command = run;
    CLI::App& command =
        AddCommand(program, chosen, "lock", "Tell who has a lock between processes, or run a command under it",
                   "Without --run it shows the processes that have the lock open, and its change stamp; it does not\n"
                   "open it, and is done when there are any. With --run the exit status is the command's: 127 when\n"
                   "there is no such command, 128 and its number when a signal ended it; 1 when the lock was not free\n"
                   "in time.\n\n"
                   "Examples:\n"
                   "  motool lock my/cache\n"
                   "  motool lock my/cache --run make cache\n"
                   "  motool lock my/cache --read --timeout 2.5 --run tar -cf cache.tar cache",
                   options, RunLock);
    command.add_option("NAME", options->name, "the lock")->required();
    command.add_option("--group", options->group, "that of a group of users, not the user's own")->type_name("GROUP");
    command.add_flag("--read", options->isReading, "lock for reading, not for writing");
    command.add_option("--timeout", options->timeout, "wait no longer than so many seconds")
        ->check(CLI::Range(0.0, LongestTimeout).description(""))
        ->type_name("SECONDS");
    command.add_flag("--json", options->isJson, "print the state as JSON");
    command.add_flag("--run", options->isRun, "run the command behind it, with all its arguments, under the lock")
        ->option_text("COMMAND...");
}

} // namespace Motool
