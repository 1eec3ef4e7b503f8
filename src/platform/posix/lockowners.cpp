#include "platform/posix/lockowners.h"

#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <system_error>

// The kernel does not say whose such a lock is when it is asked for the lock, but in /proc each process's open files
// stand with the locks that go with them:
//
//     lock:	1: OFDLCK  ADVISORY  WRITE -1 00:19:42 7 7

namespace Platform {

namespace {

bool ReadNumber(const std::string& text, std::uint32_t& number) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

void AddLocks(const std::string& information, std::uint32_t process, std::map<std::int64_t, std::uint32_t>& owners) {
    std::ifstream lines(information);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string word[7];
        std::int64_t first = 0;
        std::int64_t last = 0;
        for (std::string& one : word)
            words >> one;
        if (words >> first >> last && word[0] == "lock:" && word[2] == "OFDLCK" && first == last)
            owners[first] = process;
    }
}

} // namespace

std::map<std::int64_t, std::uint32_t> FindLockOwners(int descriptor) {
    std::map<std::int64_t, std::uint32_t> owners;
    struct stat wanted = {};
    if (fstat(descriptor, &wanted) != 0)
        return owners;
    using Entries = std::filesystem::directory_iterator;
    std::error_code error;
    for (Entries process("/proc", error); !error && process != Entries(); process.increment(error)) {
        std::uint32_t number = 0;
        if (!ReadNumber(process->path().filename().string(), number))
            continue;
        std::error_code denied;
        for (Entries file(process->path() / "fd", denied); !denied && file != Entries(); file.increment(denied)) {
            struct stat status = {};
            if (stat(file->path().c_str(), &status) == 0 && status.st_dev == wanted.st_dev &&
                status.st_ino == wanted.st_ino)
                AddLocks((process->path() / "fdinfo" / file->path().filename()).string(), number, owners);
        }
    }
    return owners;
}

} // namespace Platform
