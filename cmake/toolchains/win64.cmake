# Windows on 64-bit x86 by Debian's MinGW-w64; what it builds runs under Wine.
set(bits 64)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(triple x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
