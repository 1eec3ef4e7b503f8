// Every test program starts here: as the tests, or as a child process that one of them started to play a role.

#include <cstdio>
#include <map>
#include <string_view>

#include <gtest/gtest.h>

#include "system/childstart.h"

namespace {

std::map<std::string_view, ChildRole::Body>& Roles() {
    static std::map<std::string_view, ChildRole::Body> s_roles;
    return s_roles;
}

int PlayRole(int argc, char** argv) {
    const auto role = Roles().find(std::string_view(argv[1]).substr(RoleArgument.size()));
    if (role == Roles().end()) {
        std::fprintf(stderr, "nobody plays %s\n", argv[1]);
        return 2;
    }
    EndWhenForgotten();
    const bool done = role->second(Arguments(argv + 2, argv + argc));
    return done && !testing::Test::HasFailure() ? 0 : 1;
}

} // namespace

ChildRole::ChildRole(const char* name, Body body) : m_name(name) {
    Roles()[name] = body;
}

std::vector<std::string> FilesIn(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        names.push_back(entry.path().filename().string());
    return names;
}

std::string Native(const std::string& path) {
    return std::filesystem::path(path).make_preferred().string();
}

ScratchDirectory::~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

int main(int argc, char** argv) {
    if (argc > 1 && std::string_view(argv[1]).substr(0, RoleArgument.size()) == RoleArgument) {
        int none = 1;
        testing::InitGoogleTest(&none, argv);
        return PlayRole(argc, argv);
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
