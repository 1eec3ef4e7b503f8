#pragma once

namespace Platform {

/// Finds out where the C library, the memory allocator and the dynamic linker lie. Once, before the first call of the
/// other one.
void LocateSystemCode();

/// Whether a thread whose signal handler was given this context may be holding a lock that the whole process
/// needs, such as the heap's: it was interrupted in the code of one of these, but not in a system call that was
/// waiting. Safe in a signal handler. False where the processor is not known.
bool MayHoldSystemLock(const void* context);

} // namespace Platform
