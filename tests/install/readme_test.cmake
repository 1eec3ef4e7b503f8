# Compiles the first program of README.md against the prefix that install_test.cmake left, runs it, and compares what
# it prints with the block that README.md shows behind it.
#
# cmake -D SOURCE_DIR=... -D SCRATCH_DIR=... -D CXX=... -P readme_test.cmake

include(${CMAKE_CURRENT_LIST_DIR}/../run.cmake)

# fenced(<variable> <language>): the text of the first fenced block in that language.
file(READ ${SOURCE_DIR}/README.md readme)
function(fenced variable language)
    string(FIND "${readme}" "```${language}\n" start)
    if(start EQUAL -1)
        message(FATAL_ERROR "README.md has no ${language} block")
    endif()
    string(LENGTH "```${language}\n" fence)
    math(EXPR start "${start} + ${fence}")
    string(SUBSTRING "${readme}" ${start} -1 rest)
    string(FIND "${rest}" "```" end)
    string(SUBSTRING "${rest}" 0 ${end} rest)
    set(${variable} "${rest}" PARENT_SCOPE)
endfunction()

fenced(program cpp)
fenced(output text)
file(WRITE ${SCRATCH_DIR}/readme.cpp "${program}")
pkg_config_flags(flags ${SCRATCH_DIR}/prefix)
separate_arguments(cxx_flags UNIX_COMMAND "${CXX_FLAGS}")
run(${CXX} ${cxx_flags} -std=c++17 -Wall -Wextra -Werror ${SCRATCH_DIR}/readme.cpp -o ${SCRATCH_DIR}/readme ${flags})
run_expecting("${output}" ${emulator} ${SCRATCH_DIR}/readme)
