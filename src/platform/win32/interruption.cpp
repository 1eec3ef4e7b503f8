#include "platform/win32/interruption.h"

#include <array>
#include <cstdint>

namespace Platform {

namespace {

struct Code {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
};

// The system's libraries and the compilers'.
constexpr std::array<const wchar_t*, 10> Modules = {
    L"ntdll.dll",       L"kernel32.dll",        L"kernelbase.dll",     L"msvcrt.dll",         L"ucrtbase.dll",
    L"libstdc++-6.dll", L"libwinpthread-1.dll", L"libgcc_s_seh-1.dll", L"libgcc_s_dw2-1.dll", L"win32u.dll"};

std::array<Code, Modules.size()> s_code;

Code CodeOf(const wchar_t* name) {
    const HMODULE module = GetModuleHandleW(name);
    if (module == nullptr)
        return Code();
    const auto begin = reinterpret_cast<std::uintptr_t>(module);
    const auto* const head = reinterpret_cast<const IMAGE_DOS_HEADER*>(module);
    const auto* const image =
        reinterpret_cast<const IMAGE_NT_HEADERS*>(begin + static_cast<std::uintptr_t>(head->e_lfanew));
    return {begin, begin + image->OptionalHeader.SizeOfImage};
}

} // namespace

void LocateSystemCode() {
    for (std::size_t i = 0; i < Modules.size(); ++i)
        s_code[i] = CodeOf(Modules[i]);
}

bool MayHoldSystemLock(const CONTEXT& context) {
#if defined(_WIN64)
    const auto address = static_cast<std::uintptr_t>(context.Rip);
#else
    const auto address = static_cast<std::uintptr_t>(context.Eip);
#endif
    for (const Code& code : s_code) {
        if (address >= code.begin && address < code.end)
            return true;
    }
    // Code of no module at all is the system's too, on its way in or out.
    MEMORY_BASIC_INFORMATION memory = {};
    return VirtualQuery(reinterpret_cast<const void*>(address), &memory, sizeof(memory)) == 0 ||
           memory.Type != MEM_IMAGE;
}

} // namespace Platform
