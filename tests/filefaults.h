#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

/// While it lives, no file grows beyond `size`, as on a disk that is full: writing stops there with an error.
class FullDisk {
public:
    explicit FullDisk(rlim_t size) {
        m_signal = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_previous);
        const rlimit limit = {size, m_previous.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &m_previous);
        std::signal(SIGXFSZ, m_signal);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit m_previous = {};
    void (*m_signal)(int);
};

/// While it lives, this process's superuser is somebody who may do what the permissions allow. `Is()` is false where
/// the process is not the superuser's, and then that holds anyway.
class OrdinaryUser {
public:
    static constexpr uid_t Id = 65534;
    OrdinaryUser() : m_is(geteuid() == 0 && setegid(Id) == 0 && seteuid(Id) == 0) {}
    ~OrdinaryUser() {
        if (m_is && (seteuid(0) != 0 || setegid(0) != 0))
            std::abort();
    }
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;
    bool Is() const { return m_is; }

private:
    bool m_is;
};

inline std::vector<std::string> FilesIn(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        names.push_back(entry.path().filename().string());
    return names;
}
