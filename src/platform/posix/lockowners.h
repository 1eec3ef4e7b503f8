#pragma once

#include <cstdint>
#include <map>

namespace Platform {

/// Of the locks on single bytes of a file that go with an open file, the offsets and the processes that have them, as
/// far as this process may see: its user's own, as a rule. Looks through all processes.
std::map<std::int64_t, std::uint32_t> FindLockOwners(int descriptor);

} // namespace Platform
