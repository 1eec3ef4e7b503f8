// Each library calls the operator new of its own run-time library, which all take their memory from one malloc: its
// address in what each of them imports is changed.

#if !defined(NOMINMAX)
#define NOMINMAX
#endif
#define WIN32_LEAN_AND_MEAN
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <windows.h>

#include "text/failingallocation.h"

namespace {

// A thread_local variable may take memory itself.
const DWORD s_slot = TlsAlloc();

std::intptr_t Failing() {
    return reinterpret_cast<std::intptr_t>(TlsGetValue(s_slot));
}

void SetFailing(std::intptr_t number) {
    TlsSetValue(s_slot, reinterpret_cast<void*>(number));
}

void* Allocate(std::size_t size) {
    const DWORD error = GetLastError(); // which TlsGetValue clears
    const std::intptr_t failing = Failing();
    if (failing > 0)
        SetFailing(failing - 1);
    SetLastError(error);
    return failing == 1 ? nullptr : std::malloc(size);
}

template <class T>
T* At(char* module, std::size_t offset) {
    return reinterpret_cast<T*>(module + offset);
}

// Puts Allocate in the place of malloc in what the module imports.
void Replace(const char* name) {
    auto* const module = reinterpret_cast<char*>(GetModuleHandleA(name));
    if (module == nullptr)
        return;
    const auto* const headers =
        At<IMAGE_NT_HEADERS>(module, static_cast<std::size_t>(At<IMAGE_DOS_HEADER>(module, 0)->e_lfanew));
    const IMAGE_DATA_DIRECTORY& imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (auto* library = At<IMAGE_IMPORT_DESCRIPTOR>(module, imports.VirtualAddress); library->Name != 0; ++library) {
        const auto* imported = At<IMAGE_THUNK_DATA>(module, library->OriginalFirstThunk);
        auto* address = At<IMAGE_THUNK_DATA>(module, library->FirstThunk);
        for (; imported->u1.AddressOfData != 0; ++imported, ++address) {
            const bool hasName = !IMAGE_SNAP_BY_ORDINAL(imported->u1.Ordinal);
            const auto place = static_cast<std::size_t>(imported->u1.AddressOfData);
            if (!hasName || std::strcmp(At<IMAGE_IMPORT_BY_NAME>(module, place)->Name, "malloc") != 0)
                continue;
            DWORD protection = 0;
            VirtualProtect(address, sizeof(*address), PAGE_READWRITE, &protection);
            address->u1.Function = reinterpret_cast<std::uintptr_t>(&Allocate);
            VirtualProtect(address, sizeof(*address), protection, &protection);
        }
    }
}

const bool s_isReplaced = [] {
    for (const char* const name : {"MoBase.dll", "MoStream.dll", "MoToolkit.dll", "libstdc++-6.dll"})
        Replace(name);
    return true;
}();

} // namespace

void FailAllocation(int number) {
    SetFailing(s_isReplaced ? number : 0);
}

bool StopFailing() {
    const bool hasFailed = Failing() == 0;
    SetFailing(0);
    return hasFailed;
}
