#pragma once

// Which sanitizer a source is compiled for; g++ and clang tell it in different ways. Each is 0 or 1.

#if defined(__has_feature)
#define MOTOOLKIT_HAS_FEATURE(feature) __has_feature(feature)
#else
#define MOTOOLKIT_HAS_FEATURE(feature) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || MOTOOLKIT_HAS_FEATURE(address_sanitizer)
#define UNDER_ADDRESS_SANITIZER 1
#else
#define UNDER_ADDRESS_SANITIZER 0
#endif

#if defined(__SANITIZE_THREAD__) || MOTOOLKIT_HAS_FEATURE(thread_sanitizer)
#define UNDER_THREAD_SANITIZER 1
#else
#define UNDER_THREAD_SANITIZER 0
#endif
