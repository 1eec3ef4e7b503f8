#include "system.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <io.h>
#include <system_error>

#if !defined(NOMINMAX)
#define NOMINMAX
#endif
#define WIN32_LEAN_AND_MEAN
#if !defined(_WIN32_WINNT)
#define _WIN32_WINNT 0x0A00
#endif
#include <windows.h>

#include "letters.h"
#include "output.h"
#include "toolkit/qztoolkit.h"

using namespace Qzc;

namespace Motool {

namespace {

// ---- Text

// Half a pair is in no charset, but may be in a file's name.
std::wstring WithoutHalves(std::wstring_view text) {
    std::wstring whole;
    ForEachLetter(text, [&](std::wstring_view letter) {
        if ((letter[0] & 0xF800) == 0xD800 && letter.size() == 1)
            whole += L'\xFFFD';
        else
            whole += letter;
    });
    return whole;
}

// False when the current charset lacks a character.
bool Narrow(const std::vector<std::wstring>& texts, std::vector<std::string>& narrow) {
    narrow.clear();
    for (const std::wstring& text : texts) {
        narrow.push_back(FromWide(text, KELDCharset::Current));
        if (narrow.back().empty() && !text.empty())
            return false;
    }
    return true;
}

std::string SystemMessage(DWORD error) {
    std::array<wchar_t, 1024> text{};
    const DWORD flags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK;
    std::size_t length =
        FormatMessageW(flags, nullptr, error, 0, text.data(), static_cast<DWORD>(text.size()), nullptr);
    while (length > 0 && (text[length - 1] == L' ' || text[length - 1] == L'.'))
        --length;
    return length > 0 ? ToTerminal({text.data(), length}) : "error " + std::to_string(error);
}

// The arguments on a command line, by the rules of the C library. The system's own function for it is part of a library
// that loads half of the desktop.
std::vector<std::wstring> TakeApart(const std::wstring& line) {
    const auto isBlank = [](wchar_t unit) { return unit == L' ' || unit == L'\t'; };
    std::size_t at = 0;
    for (bool isQuoted = false; at < line.size() && (isQuoted || !isBlank(line[at])); ++at)
        isQuoted = isQuoted != (line[at] == L'"'); // the program's name
    std::vector<std::wstring> arguments;
    for (;;) {
        while (at < line.size() && isBlank(line[at]))
            ++at;
        if (at == line.size())
            return arguments;
        std::wstring argument;
        for (bool isQuoted = false; at < line.size() && (isQuoted || !isBlank(line[at]));) {
            const std::size_t end = std::min(line.find_first_not_of(L'\\', at), line.size());
            const std::size_t backslashes = end - at;
            at = end;
            if (at == line.size() || line[at] != L'"') {
                argument.append(backslashes, L'\\');
                if (at < line.size() && (isQuoted || !isBlank(line[at])))
                    argument += line[at++];
                continue;
            }
            argument.append(backslashes / 2, L'\\'); // those in front of a quote stand for half as many
            const bool isTwice = isQuoted && line.compare(at, 2, L"\"\"") == 0;
            if (backslashes % 2 != 0 || isTwice)
                argument += L'"';
            else
                isQuoted = !isQuoted;
            at += backslashes % 2 == 0 && isTwice ? 2 : 1;
        }
        arguments.push_back(std::move(argument));
    }
}

// ---- The console

struct Console {
    HANDLE handle = nullptr; ///< null: what is written goes elsewhere
    DWORD modeBefore = 0;
    bool hasColours = false;
};
std::array<Console, 2> s_consoles;
UINT s_codePage = CP_ACP; ///< of what is written

Console& ConsoleOf(Channel channel) {
    return s_consoles[channel == Channel::Output ? 0 : 1];
}

std::FILE* FileOf(Channel channel) {
    return channel == Channel::Output ? stdout : stderr;
}

// The mode is that of the console, not of this program.
void LeaveConsoles() {
    for (const Console& console : s_consoles) {
        if (console.handle != nullptr)
            SetConsoleMode(console.handle, console.modeBefore);
    }
}

BOOL WINAPI LeaveConsolesOn(DWORD) {
    LeaveConsoles();
    return FALSE;
}

// ---- Another program

bool IsOneOf(wchar_t unit, std::wstring_view units) {
    return units.find(unit) != std::wstring_view::npos;
}

std::wstring Variable(const wchar_t* name) {
    std::wstring value(GetEnvironmentVariableW(name, nullptr, 0), L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return value;
}

std::vector<std::wstring> Split(const std::wstring& list) {
    std::vector<std::wstring> parts;
    for (std::size_t at = 0; at < list.size();) {
        const std::size_t end = std::min(list.find(L';', at), list.size());
        std::wstring part = list.substr(at, end - at);
        part.erase(std::remove(part.begin(), part.end(), L'"'), part.end());
        if (!part.empty())
            parts.push_back(std::move(part));
        at = end + 1;
    }
    return parts;
}

bool EndsIn(std::wstring_view name, std::wstring_view extension) {
    return name.size() > extension.size() &&
           CompareStringOrdinal(name.substr(name.size() - extension.size()).data(), static_cast<int>(extension.size()),
                                extension.data(), static_cast<int>(extension.size()), TRUE) == CSTR_EQUAL;
}

// As the system's shell looks for a program; empty when there is none.
std::wstring FindProgram(const std::wstring& name) {
    const std::wstring endings = Variable(L"PATHEXT");
    const std::vector<std::wstring> extensions = Split(endings.empty() ? L".COM;.EXE;.BAT;.CMD" : endings);
    const bool isPath = name.find_first_of(L"\\/:") != std::wstring::npos;
    std::vector<std::wstring> folders;
    if (isPath || NeedCurrentDirectoryForExePathW(name.c_str()) != 0)
        folders.emplace_back();
    if (!isPath) {
        for (const std::wstring& folder : Split(Variable(L"PATH")))
            folders.push_back(folder + (IsOneOf(folder.back(), L"\\/") ? L"" : L"\\"));
    }
    const bool isWhole = std::any_of(extensions.begin(), extensions.end(),
                                     [&](const std::wstring& extension) { return EndsIn(name, extension); });
    for (const std::wstring& folder : folders) {
        std::vector<std::wstring> candidates;
        for (const std::wstring& extension : extensions)
            candidates.push_back(folder + name + extension);
        candidates.insert(isWhole ? candidates.begin() : candidates.end(), folder + name);
        for (const std::wstring& candidate : candidates) {
            const DWORD attributes = GetFileAttributesW(candidate.c_str());
            // A folder is found where it is named, and then cannot be run.
            if (attributes != INVALID_FILE_ATTRIBUTES && (isPath || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0))
                return candidate;
        }
    }
    return std::wstring();
}

// One argument, as programs take a command line apart.
std::wstring Quoted(const std::wstring& argument) {
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos)
        return argument;
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t unit : argument) {
        if (unit == L'"')
            quoted.append(backslashes + 1, L'\\');
        backslashes = unit == L'\\' ? backslashes + 1 : 0;
        quoted += unit;
    }
    return quoted.append(backslashes, L'\\') + L'"';
}

// What runs `program`, which it sets to the shell for the shell's own files. Such a file gets its arguments through the
// shell, which has no way to quote some characters: false for those.
bool MakeCommandLine(std::wstring& program, const std::vector<std::wstring>& arguments, std::wstring& line) {
    if (!EndsIn(program, L".bat") && !EndsIn(program, L".cmd")) {
        line = L'"' + program + L'"';
        for (const std::wstring& argument : arguments)
            line += L' ' + Quoted(argument);
        return true;
    }
    line = L"cmd.exe /d /v:off /s /c \"\"" + program + L'"';
    for (const std::wstring& argument : arguments) {
        if (argument.find_first_of(L"\"%\r\n") != std::wstring::npos)
            return false;
        line += L" \"" + argument + L'"';
    }
    line += L'"';
    program = Variable(L"ComSpec");
    return true;
}

std::atomic<HANDLE> s_program{nullptr};

// The console tells all its programs. Where it goes away itself, the system ends each of them as soon as it has had its
// chance: the one that was started has all of it.
BOOL WINAPI LeaveToProgram(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        WaitForSingleObject(s_program.load(), INFINITE);
    return TRUE;
}

/// While it lives, this process's end is that of another, and of what that has started.
class Bond {
public:
    explicit Bond(HANDLE program) : m_job(CreateJobObjectW(nullptr, nullptr)) {
        Set(JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE);
        AssignProcessToJobObject(m_job, program);
    }
    ~Bond() {
        Set(0); // what is still there was to outlive the program
        CloseHandle(m_job);
    }
    Bond(const Bond&) = delete;
    Bond& operator=(const Bond&) = delete;

private:
    void Set(DWORD flags) {
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
        limits.BasicLimitInformation.LimitFlags = flags;
        SetInformationJobObject(m_job, JobObjectExtendedLimitInformation, &limits, sizeof(limits));
    }

    HANDLE m_job;
};

} // namespace

std::vector<std::string> CommandLine(int, char**) {
    const std::vector<std::wstring> wide = TakeApart(WithoutHalves(GetCommandLineW()));
    std::vector<std::string> arguments;
    if (!Narrow(wide, arguments)) {
        SwitchToUtf8();
        Narrow(wide, arguments);
    }
    return arguments;
}

KeldMBString PathOf(const std::string& argument) {
    return FromTerminal(argument);
}

KeldMBString CurrentFolder() {
    std::error_code failed;
    return KeldMBString(FromWide(std::filesystem::current_path(failed).wstring(), KELDCharset::Current));
}

KELDCharset::Charset StartWriting() {
    for (const Channel channel : {Channel::Output, Channel::Errors}) {
        _setmode(_fileno(FileOf(channel)), _O_BINARY);
        const HANDLE handle = GetStdHandle(channel == Channel::Output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
        Console& console = ConsoleOf(channel);
        if (GetConsoleMode(handle, &console.modeBefore) == 0)
            continue;
        console.handle = handle;
        console.hasColours = SetConsoleMode(handle, console.modeBefore | ENABLE_PROCESSED_OUTPUT |
                                                        ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
    }
    std::atexit(LeaveConsoles);
    SetConsoleCtrlHandler(LeaveConsolesOn, TRUE);
    if (ConsoleOf(Channel::Output).handle == nullptr)
        return QzToolkit::GetCurCharset();
    s_codePage = CP_UTF8;
    return KELDCharset::UTF8;
}

bool Write(Channel channel, std::string_view bytes) {
    const Console& console = ConsoleOf(channel);
    std::FILE* const file = FileOf(channel);
    if (console.handle == nullptr)
        return std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    bool isWritten = std::fflush(file) == 0;
    while (!bytes.empty() && isWritten) {
        constexpr std::size_t Most = 8192; // units, for which every console has room
        std::size_t length = std::min(bytes.size(), Most);
        if (length < bytes.size()) {
            while (length > 1 && (static_cast<unsigned char>(bytes[length]) & 0xC0) == 0x80)
                --length; // not within a character
        }
        const std::string_view part = bytes.substr(0, length);
        bytes.remove_prefix(part.size());
        std::array<wchar_t, Most> wide{};
        const int units = MultiByteToWideChar(s_codePage, 0, part.data(), static_cast<int>(part.size()), wide.data(),
                                              static_cast<int>(wide.size()));
        DWORD written = 0;
        isWritten = WriteConsoleW(console.handle, wide.data(), static_cast<DWORD>(units), &written, nullptr) != 0;
    }
    return isWritten;
}

bool IsTerminal(Channel channel) {
    return ConsoleOf(channel).hasColours;
}

int TerminalWidth() {
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    if (GetConsoleScreenBufferInfo(ConsoleOf(Channel::Output).handle, &info) == 0)
        return 0;
    return std::max(info.srWindow.Right - info.srWindow.Left, 0); // what fills the last column begins a line
}

int RunProgram(const std::vector<std::string>& command, std::string& error) {
    constexpr int NotFound = 127;
    constexpr int NotRun = 126;
    std::wstring program = FindProgram(ToWide(command[0], KELDCharset::Current));
    if (program.empty()) {
        error = SystemMessage(ERROR_FILE_NOT_FOUND);
        return NotFound;
    }
    std::vector<std::wstring> arguments;
    for (std::size_t i = 1; i < command.size(); ++i)
        arguments.push_back(ToWide(command[i], KELDCharset::Current));
    std::wstring line;
    if (!MakeCommandLine(program, arguments, line)) {
        error = "a batch file cannot be given an argument with \", % or an end of line";
        return NotRun;
    }
    LeaveConsoles();
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    if (CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr, nullptr,
                       &startup, &process) == 0) {
        error = SystemMessage(GetLastError());
        return NotRun;
    }
    DWORD status = 0;
    {
        const Bond bond(process.hProcess);
        s_program = process.hProcess;
        SetConsoleCtrlHandler(LeaveToProgram, TRUE);
        ResumeThread(process.hThread);
        WaitForSingleObject(process.hProcess, INFINITE);
        GetExitCodeProcess(process.hProcess, &status);
        SetConsoleCtrlHandler(LeaveToProgram, FALSE);
    }
    // The console's own thread may still ask for the handle: it is closed with this process.
    CloseHandle(process.hThread);
    return static_cast<int>(status);
}

} // namespace Motool
