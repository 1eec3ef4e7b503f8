# Windows on 32-bit x86 by Debian's MinGW-w64; what it builds runs under Wine. Numbers are reckoned by SSE2: the older
# unit rounds otherwise, and otherwise from one build to the next. The system calls with a stack that suits neither.
set(bits 32)
set(CMAKE_SYSTEM_PROCESSOR x86)
set(triple i686-w64-mingw32)
foreach(language IN ITEMS C CXX)
    set(CMAKE_${language}_FLAGS_INIT "-msse2 -mfpmath=sse -mstackrealign")
endforeach()
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
