#include "platform/module.h"

#include <string_view>

#include "platform/win32/system.h"
#include "platform/win32/text.h"

namespace Platform {

std::string ModulePath(const char* name) {
    // As the compiler names them: with its prefix or without.
    for (const std::string_view prefix : {"", "lib"}) {
        const std::string file = std::string(prefix) + name + ".dll";
        HMODULE module = nullptr;
        if (GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT, file.c_str(), &module) == 0)
            continue;
        std::wstring path(32768, L'\0');
        const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
        if (length != 0 && length < path.size())
            return NarrowPath(std::wstring_view(path).substr(0, length));
    }
    return std::string();
}

} // namespace Platform
