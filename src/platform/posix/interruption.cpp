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

// The C library's, the allocator's where that is another one, the dynamic linker's, and what the system itself puts
// into the process where system calls go through it.
std::array<Code, 4> s_systemCode;

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

// A loop that yields is hardly ever anywhere else.
bool Yields(std::uintptr_t address) {
    const auto yield = reinterpret_cast<std::uintptr_t>(&sched_yield);
    return address >= yield && address < yield + 32;
}

} // namespace

void LocateSystemCode() {
    s_systemCode = {SystemCodeAround(reinterpret_cast<std::uintptr_t>(&getpid)),
                    SystemCodeAround(reinterpret_cast<std::uintptr_t>(&std::malloc)), LinkerCode()};
#if defined(__i386__)
    s_systemCode[3] = SystemCodeAround(getauxval(AT_SYSINFO_EHDR));
#endif
}

bool MayHoldSystemLock(const void* context) {
#if defined(__x86_64__) || defined(__i386__) || defined(__aarch64__)
    const auto& machine = static_cast<const ucontext_t*>(context)->uc_mcontext;
#if defined(__x86_64__)
    constexpr std::array<unsigned char, 2> SystemCall = {0x0F, 0x05};
    const auto address = static_cast<std::uintptr_t>(machine.gregs[REG_RIP]);
    const long long result = machine.gregs[REG_RAX];
#elif defined(__i386__)
    // The system's gate returns behind this instruction whatever it went in by.
    constexpr std::array<unsigned char, 2> SystemCall = {0xCD, 0x80};
    const auto address = static_cast<std::uintptr_t>(machine.gregs[REG_EIP]);
    const long long result = machine.gregs[REG_EAX];
#else
    constexpr std::array<unsigned char, 4> SystemCall = {0x01, 0x00, 0x00, 0xD4};
    const std::uintptr_t address = machine.pc;
    const auto result = static_cast<long long>(machine.regs[0]);
#endif
    if (Yields(address))
        return false;
    for (const Code& code : s_systemCode) {
        if (!code.Holds(address))
            continue;
        const auto* before = reinterpret_cast<const unsigned char*>(address - SystemCall.size());
        const bool inCall = std::memcmp(before, SystemCall.data(), SystemCall.size()) == 0;
#if defined(__i386__)
        // The gate keeps three registers on the stack; its caller's address follows.
        if (inCall && s_systemCode[3].Holds(address) &&
            Yields(reinterpret_cast<const std::uintptr_t*>(machine.gregs[REG_ESP])[3]))
            return false;
#endif
        return result != -EINTR || !inCall;
    }
    return false;
#else
    static_cast<void>(context);
    return false;
#endif
}

} // namespace Platform
