#include "system/system.h"

#if !defined(NOMINMAX)
#define NOMINMAX
#endif
#define WIN32_LEAN_AND_MEAN
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>
#include <windows.h>

#include "system/childstart.h"

namespace {

// A test cannot go on without it.
void Require(bool done, const char* what) {
    if (!done) {
        std::fprintf(stderr, "%s: error %lu\n", what, GetLastError());
        std::abort();
    }
}

std::wstring Wide(const std::string& text) {
    std::wstring wide(text.size(), L'\0');
    wide.resize(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                                             wide.data(), static_cast<int>(wide.size()))));
    return wide;
}

// One argument of a command line, as the run-time library takes it apart.
std::wstring Quoted(const std::wstring& argument) {
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

constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool IsWine() {
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

HANDLE SystemHandle(std::intptr_t handle) {
    return reinterpret_cast<HANDLE>(handle);
}

} // namespace

std::uint32_t ProcessId() {
    return GetCurrentProcessId();
}

std::string InFrontOfPrograms() {
    return std::string();
}

void KillThisProcess() {
    TerminateProcess(GetCurrentProcess(), 137);
    std::abort();
}

EnvironmentVariable::EnvironmentVariable(const char* name, const char* value) : m_name(name) {
    const char* const previous = std::getenv(name);
    m_wasSet = previous != nullptr;
    m_previous = m_wasSet ? previous : "";
    _putenv_s(name, value != nullptr ? value : "");
}

EnvironmentVariable::~EnvironmentVariable() {
    _putenv_s(m_name.c_str(), m_wasSet ? m_previous.c_str() : "");
}

ScratchDirectory::ScratchDirectory() {
    static std::atomic<int> s_number{0};
    const std::string name = "motoolkit-" + std::to_string(GetCurrentProcessId()) + '-' +
                             std::to_string(GetTickCount64()) + '-' + std::to_string(++s_number);
    m_path = std::filesystem::temp_directory_path() / name;
    Require(std::filesystem::create_directory(m_path), "create_directory");
}

// ---- Child processes

void EndWhenForgotten() {
    std::thread([] {
        Sleep(120000 * Slowness);
        KillThisProcess();
    }).detach();
}

ChildProcess::ChildProcess(const ChildRole& role, const Arguments& arguments, const ChildSettings& settings) {
    std::wstring program(32768, L'\0');
    program.resize(GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
    std::wstring command = Quoted(program) + L' ' + Quoted(Wide(std::string(RoleArgument) + role.Name()));
    for (const std::string& argument : arguments)
        command += L' ' + Quoted(Wide(argument));
    std::map<std::wstring, std::wstring> variables;
    wchar_t* const strings = GetEnvironmentStringsW();
    for (const wchar_t* variable = strings; *variable != L'\0';) {
        const std::wstring text = variable;
        const std::size_t equal = text.find(L'=', 1);
        if (equal != std::wstring::npos)
            variables[text.substr(0, equal)] = text.substr(equal + 1);
        variable += text.size() + 1;
    }
    FreeEnvironmentStringsW(strings);
    for (const auto& [name, value] : settings.environment)
        variables[Wide(name)] = Wide(value);
    std::wstring environment;
    for (const auto& [name, value] : variables)
        environment.append(name).append(L"=").append(value).append(1, L'\0');
    environment += L'\0';

    std::fflush(nullptr);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    const std::wstring directory = Wide(settings.directory);
    const bool isStarted =
        CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, FALSE, CREATE_UNICODE_ENVIRONMENT,
                       environment.data(), directory.empty() ? nullptr : directory.c_str(), &startup, &process) != 0;
    Require(isStarted || GetLastError() == ERROR_DIRECTORY, "CreateProcess"); // a child that could not change there
    if (isStarted)
        CloseHandle(process.hThread);
    m_id = process.dwProcessId;
    m_handle = reinterpret_cast<std::intptr_t>(process.hProcess);
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : m_id(other.m_id), m_handle(std::exchange(other.m_handle, 0)) {}

void ChildProcess::Kill() {
    if (m_handle != 0)
        TerminateProcess(SystemHandle(m_handle), 137);
    Succeeds();
}

bool ChildProcess::Succeeds() {
    DWORD code = 1;
    if (m_handle != 0) {
        WaitForSingleObject(SystemHandle(m_handle), INFINITE);
        GetExitCodeProcess(SystemHandle(m_handle), &code);
        CloseHandle(SystemHandle(m_handle));
    }
    m_handle = 0;
    return code == 0;
}

void* SharedBytes(const std::string& path, std::size_t size) {
    const HANDLE file = CreateFileW(Wide(path).c_str(), GENERIC_READ | GENERIC_WRITE, ShareAll, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    Require(file != INVALID_HANDLE_VALUE, path.c_str());
    const auto length = static_cast<std::uint64_t>(size);
    const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READWRITE, static_cast<DWORD>(length >> 32),
                                              static_cast<DWORD>(length & 0xFFFFFFFF), nullptr);
    Require(mapping != nullptr, "CreateFileMapping");
    void* const bytes = MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, size);
    Require(bytes != nullptr, "MapViewOfFile");
    CloseHandle(mapping);
    CloseHandle(file);
    return bytes;
}

const char* RepeatedText(std::size_t size) {
    constexpr std::size_t Chunk = 1 << 20;
    const HANDLE memory = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, Chunk, nullptr);
    Require(memory != nullptr, "CreateFileMapping");
    // Addresses that are free now are so in a moment, too.
    char* const text = static_cast<char*>(VirtualAlloc(nullptr, size + 2 * Chunk, MEM_RESERVE, PAGE_NOACCESS));
    Require(text != nullptr && VirtualFree(text, 0, MEM_RELEASE) != 0, "VirtualAlloc");
    std::size_t at = 0;
    for (; at < size; at += Chunk)
        Require(MapViewOfFileEx(memory, FILE_MAP_WRITE, 0, 0, Chunk, text + at) != nullptr, "MapViewOfFileEx");
    Require(VirtualAlloc(text + at, Chunk, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE) != nullptr, "VirtualAlloc");
    std::fill_n(text, Chunk, 'a');
    CloseHandle(memory);
    return text;
}

// ---- Files that make trouble

const bool PosixFiles = false;

const bool ZonesByEnvironment = false;

bool MakeSymbolicLink(const std::string& target, const std::string& link) {
    const std::wstring path = Wide(link);
    CreateSymbolicLinkW(path.c_str(), Wide(target).c_str(), SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE);
    const DWORD attributes = GetFileAttributesW(path.c_str()); // some say that they have done it, and have not
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// Wine keeps the name until all have closed the file.
const bool RemovesOpenFiles = !IsWine();

void AppendToFile(const std::string& path, const std::string& bytes) {
    const HANDLE file = CreateFileW(Wide(path).c_str(), FILE_APPEND_DATA, ShareAll, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD written = 0;
    Require(WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) != 0, "WriteFile");
    CloseHandle(file);
}

// Wine asks where the end is and then writes there.
const bool AppendsInOneStep = !IsWine();

// Wine has the device of the system beneath.
std::string FullDevice() {
    const std::string device = "Z:\\dev\\full";
    const HANDLE file = CreateFileW(Wide(device).c_str(), GENERIC_WRITE, ShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
    if (!IsWine() || file == INVALID_HANDLE_VALUE)
        return std::string();
    CloseHandle(file);
    return device;
}

bool MakePipe(const std::string&) {
    return false; // pipes have names of their own here
}

FullDisk::FullDisk(std::uint64_t) {}

FullDisk::~FullDisk() = default;

OrdinaryUser::OrdinaryUser() : m_is(false) {}

OrdinaryUser::~OrdinaryUser() = default;
