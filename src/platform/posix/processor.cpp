#include "platform/processor.h"

#include <sched.h>
#include <thread>

namespace Platform {

int ProcessorCount() {
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof(set), &set) == 0)
        return CPU_COUNT(&set);
    const unsigned count = std::thread::hardware_concurrency(); // more processors than cpu_set_t holds
    return count > 0 ? static_cast<int>(count) : 1;
}

} // namespace Platform
