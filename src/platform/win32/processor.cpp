#include "platform/processor.h"

#include "platform/win32/system.h"

namespace Platform {

int ProcessorCount() {
    DWORD_PTR ours = 0;
    DWORD_PTR all = 0;
    int count = 0;
    if (GetProcessAffinityMask(GetCurrentProcess(), &ours, &all) != 0) {
        for (; ours != 0; ours &= ours - 1)
            ++count;
    }
    return count > 0 ? count : 1;
}

} // namespace Platform
