#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <vector>

// What the tests ask of the operating system; a source per system beside this header answers. A test that includes more
// of a system than this is about that system alone.

/// How many times slower the target runs than a processor of today (MOTOOLKIT_TEST_SLOWNESS; an emulator: 10 or so).
constexpr int Slowness = MOTOOLKIT_TEST_SLOWNESS;

/// What a test does `count` times, it does so many times less often on a slow target.
template <class Count>
constexpr Count Often(Count count) {
    return std::max(static_cast<Count>(count / Slowness), Count{1});
}

std::uint32_t ProcessId();

/// Ends this process as a kill from outside does: nothing of it runs any more.
[[noreturn]] void KillThisProcess();

/// What stands in front of a program of the target in a command for the shell: an emulator and a blank, or nothing.
std::string InFrontOfPrograms();

/// Sets a variable of the environment while it lives, or takes it out (null).
class EnvironmentVariable {
public:
    EnvironmentVariable(const char* name, const char* value);
    ~EnvironmentVariable();
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

private:
    std::string m_name;
    std::string m_previous;
    bool m_wasSet;
};

/// A directory of its own, removed with all that is in it.
class ScratchDirectory {
public:
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    std::string operator/(const std::string& name) const { return (m_path / name).string(); }
    std::string Path() const { return m_path.string(); }

private:
    std::filesystem::path m_path;
};

std::vector<std::string> FilesIn(const std::string& directory);

// ---- Child processes

using Arguments = std::vector<std::string>;

/// Something that a child process does, at namespace level: `const ChildRole Writer("writer", [](const Arguments&
/// arguments) { ...; return true; });`. The name is its own in the program. EXPECT_ and ASSERT_ count there too.
class ChildRole {
public:
    using Body = bool (*)(const Arguments& arguments);
    ChildRole(const char* name, Body body);

    const char* Name() const { return m_name; }

private:
    const char* m_name;
};

/// What else a child is given: its working directory (this process's when empty), and variables of its environment.
struct ChildSettings {
    std::string directory;
    std::map<std::string, std::string> environment;
};

/// This program, started once more in a process that plays a role. Waited for, and killed before, at the end of the
/// scope. An orphan that hangs ends after some minutes.
class ChildProcess {
public:
    explicit ChildProcess(const ChildRole& role, const Arguments& arguments = {}, const ChildSettings& settings = {});
    ~ChildProcess() { Kill(); }
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&&) = delete;

    std::uint32_t Id() const { return m_id; }

    void Kill();

    /// Waits for its end: whether it ended by itself, its role gave true and no expectation failed.
    bool Succeeds();

private:
    std::uint32_t m_id;
    std::intptr_t m_handle; // 0: there is none any more
};

/// A file's first bytes in memory that all processes share which ask for the same path; zeros at first. Until the end
/// of the process.
void* SharedBytes(const std::string& path, std::size_t size);

/// An object in such memory. Its bytes are zeros at first: a type of atomics, or of plain numbers.
template <class T>
T& SharedObject(const std::string& path) {
    return *std::launder(static_cast<T*>(SharedBytes(path, sizeof(T))));
}

/// A text of that many equal letters and a terminator, in memory that holds only a megabyte of it, until the end of the
/// process.
const char* RepeatedText(std::size_t size);

// ---- Files

/// A path as this system writes it.
std::string Native(const std::string& path);

/// Whether there are symbolic links for everybody, permissions by three digits, and pipes among the files.
extern const bool PosixFiles;

/// Whether TZ in the environment chooses the time zone of a process at any time.
extern const bool ZonesByEnvironment;

/// False where there are no symbolic links, or not for us.
bool MakeSymbolicLink(const std::string& target, const std::string& link);

/// Whether a file that somebody has open loses its name at once when it is removed.
extern const bool RemovesOpenFiles;

/// Adds bytes to a file's end as a program that knows nothing of us: in one step, where the system has that.
void AppendToFile(const std::string& path, const std::string& bytes);
extern const bool AppendsInOneStep;

// ---- Files that make trouble

/// A path that can be opened for writing and takes nothing, as on a full disk; empty where there is none.
std::string FullDevice();

/// Makes something that is neither file nor directory (a pipe with a name). False where there is no such thing.
bool MakePipe(const std::string& path);

/// While it lives, no file grows beyond `size`, as on a disk that is full: writing stops there with an error. `Is()` is
/// false where that cannot be had.
class FullDisk {
public:
    explicit FullDisk(std::uint64_t size);
    ~FullDisk();
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    bool Is() const { return m_is; }

private:
    std::uint64_t m_previous = 0;
    void (*m_signal)(int) = nullptr;
    bool m_is = false;
};

/// While it lives, this process's superuser is somebody who may do what the permissions allow. `Is()` is false where
/// the process is not the superuser's, and then that holds anyway.
class OrdinaryUser {
public:
    static constexpr unsigned Id = 65534;
    OrdinaryUser();
    ~OrdinaryUser();
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;
    bool Is() const { return m_is; }

private:
    bool m_is;
};
