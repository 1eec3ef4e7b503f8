#include "platform/directory.h"

#include <cerrno>
#include <dirent.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace Platform {

void ListDirectory(const std::string& path, const std::function<void(const char* name)>& visit) {
    struct Closer {
        void operator()(DIR* opened) const { closedir(opened); }
    };
    const std::unique_ptr<DIR, Closer> directory(opendir(path.c_str()));
    while (directory != nullptr) {
        const dirent* const entry = readdir(directory.get()); // NOLINT(concurrency-mt-unsafe): nobody else's directory
        if (entry == nullptr)
            break;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            visit(entry->d_name);
    }
}

bool FileAge(const char* path, std::int64_t& time, std::int64_t& length) {
    struct stat status = {};
    if (stat(path, &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    time = static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec;
    length = status.st_size;
    return true;
}

bool IsSameFile(const char* one, const char* other) {
    struct stat first = {};
    struct stat second = {};
    return stat(one, &first) == 0 && stat(other, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino && (S_ISREG(first.st_mode) || S_ISDIR(first.st_mode));
}

std::string CurrentDirectory() {
    std::string path(256, '\0');
    while (getcwd(path.data(), path.size()) == nullptr) {
        if (errno != ERANGE)
            return std::string();
        path.resize(2 * path.size());
    }
    path.resize(path.find('\0'));
    return path;
}

} // namespace Platform
