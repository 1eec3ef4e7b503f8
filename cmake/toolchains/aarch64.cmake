# Linux on 64-bit ARM by Debian's cross-compiler; what it builds runs under QEMU's user emulation, which finds the
# target's libraries in the cross-compiler's folder. tools/setup.sh unpacks what its packages leave out: the charset
# modules of the C library, and the libraries that the tests want.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
get_filename_component(foreign ${CMAKE_CURRENT_LIST_DIR}/../../build/foreign/arm64 ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu ${foreign})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(CMAKE_CROSSCOMPILING_EMULATOR
    "qemu-aarch64;-L;/usr/aarch64-linux-gnu;-E;GCONV_PATH=${foreign}/usr/lib/aarch64-linux-gnu/gconv")
