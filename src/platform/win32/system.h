#pragma once

// The system's header with no more in it than is used here.
#if !defined(NOMINMAX)
#define NOMINMAX
#endif
#define WIN32_LEAN_AND_MEAN
#if !defined(_WIN32_WINNT)
#define _WIN32_WINNT 0x0A00
#endif
#include <windows.h>

// For what the system calls: its stacks of 32 bits are aligned less than the compiler takes for granted.
#if defined(__GNUC__) && defined(__i386__)
#define CALLED_BY_SYSTEM [[gnu::force_align_arg_pointer]]
#else
#define CALLED_BY_SYSTEM
#endif
