#pragma once

#include <stddef.h>

/* The three functions of iconv over the system's own converter, for builds without a library of that kind. They behave
   as POSIX says, with EILSEQ also for a character that the target charset lacks. The names are those of the charset
   table (base/keldcharset.h) as far as the system has them; "//IGNORE" and "//TRANSLIT" behind the target's name drop
   such characters, or put '?' in their place, and count them. Any thread; one descriptor is used by one thread at a
   time. */

#ifdef __cplusplus
extern "C" {
#endif

typedef void* iconv_t;

iconv_t iconv_open(const char* to, const char* from);
size_t iconv(iconv_t descriptor, char** in, size_t* inLeft, char** out, size_t* outLeft);
int iconv_close(iconv_t descriptor);

#ifdef __cplusplus
}
#endif
