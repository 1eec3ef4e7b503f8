#include "platform/posix/interruption.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <link.h>
#include <sched.h>
#include <ucontext.h>
#include <unistd.h>

namespace Platform {

namespace {

struct Code {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;

    bool Holds(std::uintptr_t address) const { return address >= begin && address < end; }
};

std::array<Code, 2> s_systemCode; // the C library's, and the allocator's where that is another one

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

template <class Function>
Code CodeAround(Function* function) {
    Search search{reinterpret_cast<std::uintptr_t>(function), Code()};
    dl_iterate_phdr(Visit, &search);
    // In a program that is linked with the C library in one piece nothing tells the two apart.
    return search.found.Holds(reinterpret_cast<std::uintptr_t>(&LocateSystemCode)) ? Code() : search.found;
}

} // namespace

void LocateSystemCode() {
    s_systemCode = {CodeAround(&getpid), CodeAround(&std::malloc)};
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
