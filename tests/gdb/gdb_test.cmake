# Builds a program against the prefix that install_test.cmake left, and has GDB show its variables. GDB is told no more
# than that it may trust the prefix.
#
# cmake -D SOURCE_DIR=... -D SCRATCH_DIR=... -D CXX=... -D PYTHON=... -P gdb_test.cmake

include(${CMAKE_CURRENT_LIST_DIR}/../run.cmake)

pkg_config_flags(flags ${SCRATCH_DIR}/prefix)
separate_arguments(cxx_flags UNIX_COMMAND "${CXX_FLAGS}")
run(${CXX} ${cxx_flags} -std=c++17 -g -O0 ${SOURCE_DIR}/tests/gdb/debuggee.cpp -o ${SCRATCH_DIR}/debuggee ${flags})
run(${PYTHON} ${SOURCE_DIR}/tests/gdb/gdb_test.py ${SCRATCH_DIR}/debuggee
    -iex "add-auto-load-safe-path ${SCRATCH_DIR}/prefix")
