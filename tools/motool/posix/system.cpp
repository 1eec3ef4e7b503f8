#include "system.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

#include "toolkit/qztoolkit.h"

extern char** environ; // NOLINT(readability-redundant-declaration): not every C library declares it

namespace Motool {

namespace {

std::atomic<pid_t> s_program{0};
static_assert(std::atomic<pid_t>::is_always_lock_free);

void HandOn(int signal) {
    const int error = errno;
    const pid_t program = s_program;
    if (program > 0)
        kill(program, signal);
    errno = error;
}

/// What signals do while a program runs, and in the program what they did before.
class Signals {
public:
    Signals() {
        posix_spawnattr_init(&m_attributes);
        sigset_t changed;
        sigemptyset(&changed);
        for (std::size_t i = 0; i < Count; ++i) {
            struct sigaction action = {};
            action.sa_handler = i < Ignored ? SIG_IGN : HandOn;
            sigemptyset(&action.sa_mask);
            action.sa_flags = SA_RESTART;
            sigaction(Numbers[i], &action, &m_before[i]);
            if (m_before[i].sa_handler == SIG_DFL)
                sigaddset(&changed, Numbers[i]);
        }
        posix_spawnattr_setsigdefault(&m_attributes, &changed);
        posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGDEF);
    }
    ~Signals() {
        for (std::size_t i = 0; i < Count; ++i)
            sigaction(Numbers[i], &m_before[i], nullptr);
        posix_spawnattr_destroy(&m_attributes);
    }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    const posix_spawnattr_t& Attributes() const { return m_attributes; }

private:
    static constexpr std::size_t Count = 4;
    static constexpr std::size_t Ignored = 2; // the terminal sends them to the program, too
    static constexpr int Numbers[Count] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};

    struct sigaction m_before[Count] = {};
    posix_spawnattr_t m_attributes = {};
};

} // namespace

std::vector<std::string> CommandLine(int argc, char** argv) {
    return std::vector<std::string>(argv + std::min(argc, 1), argv + argc);
}

KELD::KeldMBString PathOf(const std::string& argument) {
    return KELD::KeldMBString{std::string_view(argument)};
}

KELD::KeldMBString CurrentFolder() {
    std::error_code failed;
    return KELD::KeldMBString(std::filesystem::current_path(failed).string());
}

KELD::KELDCharset::Charset StartWriting() {
    return Qzc::QzToolkit::GetCurCharset();
}

bool Write(Channel channel, std::string_view bytes) {
    return std::fwrite(bytes.data(), 1, bytes.size(), channel == Channel::Output ? stdout : stderr) == bytes.size();
}

bool IsTerminal(Channel channel) {
    return isatty(channel == Channel::Output ? STDOUT_FILENO : STDERR_FILENO) != 0;
}

int TerminalWidth() {
    struct winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

int RunProgram(const std::vector<std::string>& command, std::string& error) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);

    const Signals signals;
    pid_t program = 0;
    const int failure = posix_spawnp(&program, arguments[0], nullptr, &signals.Attributes(), arguments.data(), environ);
    if (failure != 0) {
        error = std::generic_category().message(failure);
        return failure == ENOENT ? 127 : 126;
    }
    s_program = program;
    int status = 0;
    while (waitpid(program, &status, 0) < 0 && errno == EINTR) {
    }
    s_program = 0;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace Motool
