#include "system/system.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "system/childstart.h"

namespace {

// A test cannot go on without it.
void Require(bool done, const char* what) {
    if (!done) {
        std::perror(what);
        std::abort();
    }
}

// The words of the emulator's command, where there is one.
std::vector<std::string> Emulator() {
    std::vector<std::string> command;
    const std::string emulator = MOTOOLKIT_TEST_EMULATOR;
    for (std::size_t start = 0; start < emulator.size();) {
        const std::size_t end = std::min(emulator.find('|', start), emulator.size());
        command.push_back(emulator.substr(start, end - start));
        start = end + 1;
    }
    return command;
}

} // namespace

std::uint32_t ProcessId() {
    return static_cast<std::uint32_t>(getpid());
}

std::string InFrontOfPrograms() {
    std::string command;
    for (const std::string& word : Emulator())
        command += "'" + word + "' ";
    return command;
}

void KillThisProcess() {
    raise(SIGKILL);
    std::abort();
}

EnvironmentVariable::EnvironmentVariable(const char* name, const char* value) : m_name(name) {
    const char* const previous = std::getenv(name);
    m_wasSet = previous != nullptr;
    m_previous = m_wasSet ? previous : "";
    value != nullptr ? setenv(name, value, 1) : unsetenv(name);
}

EnvironmentVariable::~EnvironmentVariable() {
    m_wasSet ? setenv(m_name.c_str(), m_previous.c_str(), 1) : unsetenv(m_name.c_str());
}

ScratchDirectory::ScratchDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "motoolkit-XXXXXX").string();
    Require(mkdtemp(name.data()) != nullptr, "mkdtemp");
    m_path = name;
}

// ---- Child processes

void EndWhenForgotten() {
    alarm(120 * Slowness);
}

ChildProcess::ChildProcess(const ChildRole& role, const Arguments& arguments, const ChildSettings& settings) {
    std::vector<std::string> command = Emulator();
    command.push_back(std::filesystem::read_symlink("/proc/self/exe").string());
    command.push_back(std::string(RoleArgument) + role.Name());
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::vector<char*> texts;
    for (std::string& word : command)
        texts.push_back(word.data());
    texts.push_back(nullptr);
    std::vector<std::string> variables;
    for (const auto& [name, value] : settings.environment)
        variables.push_back(name + '=' + value);
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string text = *variable;
        if (settings.environment.count(text.substr(0, text.find('='))) == 0)
            variables.push_back(text);
    }
    std::vector<char*> environment;
    for (std::string& variable : variables)
        environment.push_back(variable.data());
    environment.push_back(nullptr);

    std::fflush(nullptr);
    const pid_t child = fork();
    Require(child >= 0, "fork");
    if (child == 0) { // nothing that takes memory or a lock: other threads may hold it
        if (settings.directory.empty() || chdir(settings.directory.c_str()) == 0)
            execvpe(texts[0], texts.data(), environment.data());
        _exit(127);
    }
    m_id = static_cast<std::uint32_t>(child);
    m_handle = child;
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : m_id(other.m_id), m_handle(std::exchange(other.m_handle, 0)) {}

void ChildProcess::Kill() {
    if (m_handle > 0)
        kill(static_cast<pid_t>(m_handle), SIGKILL);
    Succeeds();
}

bool ChildProcess::Succeeds() {
    int status = -1;
    if (m_handle > 0) {
        while (waitpid(static_cast<pid_t>(m_handle), &status, 0) < 0 && errno == EINTR) {
        }
    }
    m_handle = 0;
    return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void* SharedBytes(const std::string& path, std::size_t size) {
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    Require(file >= 0 && ftruncate(file, static_cast<off_t>(size)) == 0, path.c_str());
    void* const bytes = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    Require(bytes != MAP_FAILED, "mmap");
    close(file);
    return bytes;
}

const char* RepeatedText(std::size_t size) {
    constexpr std::size_t Chunk = 1 << 20;
    const int memory = memfd_create("text", 0);
    Require(memory >= 0 && ftruncate(memory, Chunk) == 0, "memfd_create");
    void* const start =
        mmap(nullptr, size + 2 * Chunk, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    Require(start != MAP_FAILED, "mmap");
    char* const text = static_cast<char*>(start);
    for (std::size_t at = 0; at < size; at += Chunk)
        mmap(text + at, Chunk, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, memory, 0);
    std::fill_n(text, Chunk, 'a');
    close(memory);
    return text;
}

// ---- Files that make trouble

const bool PosixFiles = true;

const bool ZonesByEnvironment = true;

bool MakeSymbolicLink(const std::string& target, const std::string& link) {
    return symlink(target.c_str(), link.c_str()) == 0;
}

const bool RemovesOpenFiles = true;

void AppendToFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::app | std::ios::binary) << bytes;
}

const bool AppendsInOneStep = true;

std::string FullDevice() {
    return "/dev/full";
}

bool MakePipe(const std::string& path) {
    return mkfifo(path.c_str(), 0600) == 0;
}

FullDisk::FullDisk(std::uint64_t size) {
    m_signal = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    m_previous = limit.rlim_cur;
    limit.rlim_cur = static_cast<rlim_t>(size);
    m_is = setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

FullDisk::~FullDisk() {
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = static_cast<rlim_t>(m_previous);
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, m_signal);
}

OrdinaryUser::OrdinaryUser() : m_is(geteuid() == 0 && setegid(Id) == 0 && seteuid(Id) == 0) {}

OrdinaryUser::~OrdinaryUser() {
    if (m_is)
        Require(seteuid(0) == 0 && setegid(0) == 0, "seteuid");
}
