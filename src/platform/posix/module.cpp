#include "platform/module.h"

#include <filesystem>
#include <link.h>
#include <string_view>
#include <system_error>

namespace Platform {

namespace {

struct Search {
    std::string fileName; // "libMoBase.so", with or without a version behind it
    std::string found;
};

int Visit(dl_phdr_info* module, std::size_t, void* argument) {
    auto* search = static_cast<Search*>(argument);
    const std::string_view path = module->dlpi_name != nullptr ? module->dlpi_name : "";
    const std::string_view file = path.substr(path.rfind('/') + 1);
    const std::size_t length = search->fileName.size();
    if (file.substr(0, length) != search->fileName || (file.size() > length && file[length] != '.'))
        return 0;
    search->found = path;
    return 1;
}

} // namespace

std::string ModulePath(const char* name) {
    Search search{std::string("lib") + name + ".so", std::string()};
    if (dl_iterate_phdr(Visit, &search) == 0)
        return std::string();
    std::error_code failed;
    const std::filesystem::path path = std::filesystem::absolute(search.found, failed);
    return failed ? std::string() : path.lexically_normal().string();
}

} // namespace Platform
