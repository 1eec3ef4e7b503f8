#pragma once

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <unistd.h>

inline void Require(bool holds) {
    if (!holds)
        std::abort();
}

/// A file in memory, this process's own.
class FuzzFile {
public:
    explicit FuzzFile(const std::string& bytes) { std::ofstream(Path(), std::ios::binary) << bytes; }
    ~FuzzFile() { unlink(Path().c_str()); }
    FuzzFile(const FuzzFile&) = delete;
    FuzzFile& operator=(const FuzzFile&) = delete;

    static std::string Path() { return "/dev/shm/motoolkit-fuzz-" + std::to_string(getpid()) + ".xml"; }
    static std::string Bytes() {
        std::ifstream file(Path(), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }
};
