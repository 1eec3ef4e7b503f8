# Linux on 32-bit x86, by the compiler's multilib package on a 64-bit Debian. The package without a version excludes the
# cross-compilers', so the compiler is named with its version and the kernel's headers by their path. Libraries that the
# tests want are unpacked by tools/setup.sh. Numbers are reckoned by SSE2: the older unit rounds otherwise, and otherwise
# from one build to the next.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc-12)
set(CMAKE_CXX_COMPILER g++-12)
foreach(language IN ITEMS C CXX)
    set(CMAKE_${language}_FLAGS_INIT "-m32 -msse2 -mfpmath=sse -isystem /usr/include/x86_64-linux-gnu")
endforeach()
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
get_filename_component(foreign ${CMAKE_CURRENT_LIST_DIR}/../../build/foreign/i386 ABSOLUTE)
list(APPEND CMAKE_PREFIX_PATH ${foreign}/usr)
