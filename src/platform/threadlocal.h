#pragma once

namespace Platform {

// Some compilers put a function call with a look-up and a lock behind each use of a thread_local object, and give its
// memory back before the thread's slots are ended. The build tells of them.
#if !defined(MOPLATFORM_EMULATED_THREAD_LOCAL)
constexpr bool HasThreadLocal = true;
#else
constexpr bool HasThreadLocal = false;
#endif

} // namespace Platform
