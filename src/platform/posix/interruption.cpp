#include "platform/posix/interruption.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <link.h>
#include <sched.h>
#include <sys/auxv.h>
#include <ucontext.h>
#include <unistd.h>

namespace Platform {

namespace {

struct Code {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;

    bool Holds(std::uintptr_t address) const { return address >= begin && address < end; }
};

// The C library's, the allocator's where that is another one, and the dynamic linker's.
std::array<Code, 3> s_systemCode;

struct Search {
    std::uintptr_t wanted;
    Code found;
};

int Visit(dl_phdr_info* module, std::size_t, void* argument) {
    auto& search = *static_cast<Search*>(argument);
    for (int i = 0; i < module->dlpi_phnum; ++i) {
        const auto& segment = module->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0)
            continue;
        const std::uintptr_t begin = module->dlpi_addr + segment.p_vaddr;
        const Code code = {begin, begin + segment.p_memsz};
        if (code.Holds(search.wanted)) {
            search.found = code;
            return 1;
        }
    }
    return 0;
}

Code CodeAround(std::uintptr_t address) {
    Search search{address, Code()};
    if (address != 0)
        dl_iterate_phdr(Visit, &search);
    return search.found;
}

/// The system's code at an address. Nothing where it is one piece with the program, or with this library: there
/// nothing tells a thread's own work from the system's, and every place would count as one to stay away from.
Code SystemCodeAround(std::uintptr_t address) {
    const Code code = CodeAround(address);
    const bool isMixed = code.Holds(getauxval(AT_ENTRY)) || code.Holds(reinterpret_cast<std::uintptr_t>(&CodeAround));
    return isMixed ? Code() : code;
}

/// The dynamic linker's, which is told by its base alone: it has no function that is known to be its own.
Code LinkerCode() {
    Code code;
    const std::uintptr_t base = getauxval(AT_BASE);
    if (base == 0)
        return code; // linked statically
    const auto* header = reinterpret_cast<const ElfW(Ehdr)*>(base);
    const auto* segments = reinterpret_cast<const ElfW(Phdr)*>(base + header->e_phoff);
    for (int i = 0; i < header->e_phnum; ++i) {
        if (segments[i].p_type == PT_LOAD && (segments[i].p_flags & PF_X) != 0)
            code = {base + segments[i].p_vaddr, base + segments[i].p_vaddr + segments[i].p_memsz};
    }
    return code;
}

} // namespace

void LocateSystemCode() {
    s_systemCode = {SystemCodeAround(reinterpret_cast<std::uintptr_t>(&getpid)),
                    SystemCodeAround(reinterpret_cast<std::uintptr_t>(&std::malloc)), LinkerCode()};
}

bool MayHoldSystemLock(const void* context) {
#if defined(__x86_64__) || defined(__aarch64__)
    const auto& machine = static_cast<const ucontext_t*>(context)->uc_mcontext;
#if defined(__x86_64__)
    constexpr std::array<unsigned char, 2> SystemCall = {0x0F, 0x05};
    const auto address = static_cast<std::uintptr_t>(machine.gregs[REG_RIP]);
    const long long result = machine.gregs[REG_RAX];
#else
    constexpr std::array<unsigned char, 4> SystemCall = {0x01, 0x00, 0x00, 0xD4};
    const std::uintptr_t address = machine.pc;
    const auto result = static_cast<long long>(machine.regs[0]);
#endif
    // A loop that yields is hardly ever anywhere else.
    const auto yield = reinterpret_cast<std::uintptr_t>(&sched_yield);
    if (address >= yield && address < yield + 32)
        return false;
    for (const Code& code : s_systemCode) {
        if (!code.Holds(address))
            continue;
        const auto* before = reinterpret_cast<const unsigned char*>(address - SystemCall.size());
        return result != -EINTR || std::memcmp(before, SystemCall.data(), SystemCall.size()) != 0;
    }
    return false;
#else
    static_cast<void>(context);
    return false;
#endif
}

} // namespace Platform
