# Installs a build into a scratch prefix and uses it as a stranger would, through CMake and through pkg-config.
#
# cmake -D BUILD_DIR=... -D SOURCE_DIR=... -D SCRATCH_DIR=... -D CXX=... -D GENERATOR=... -P install_test.cmake

include(${CMAKE_CURRENT_LIST_DIR}/../run.cmake)

set(expected_output "E4 B8 AD E6 96 87 from a stream of 8 bytes\n")

# The prefix is moved after the installation: nothing in it may remember where it was.
file(REMOVE_RECURSE ${SCRATCH_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${SCRATCH_DIR}/staging)
file(RENAME ${SCRATCH_DIR}/staging ${SCRATCH_DIR}/prefix)

# What is internal stays at home.
file(GLOB_RECURSE installed ${SCRATCH_DIR}/prefix/*)
foreach(file IN LISTS installed)
    if(file MATCHES "MoPlatform|/platform/")
        message(FATAL_ERROR "${file} is internal, but was installed")
    endif()
    if(file MATCHES "\\.(cmake|pc)$")
        file(READ ${file} text)
        foreach(leak IN ITEMS MoPlatform ${BUILD_DIR} ${SOURCE_DIR} ${SCRATCH_DIR})
            string(FIND "${text}" "${leak}" found)
            if(NOT found EQUAL -1)
                message(FATAL_ERROR "${file} names ${leak}")
            endif()
        endforeach()
    endif()
endforeach()

# Through find_package.
set(consumer ${SCRATCH_DIR}/consumer)
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/consumer -B ${consumer} -G ${GENERATOR}
    -D CMAKE_CXX_COMPILER=${CXX} -D "CMAKE_CXX_FLAGS=${CXX_FLAGS}" -D "CMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}"
    -D CMAKE_PREFIX_PATH=${SCRATCH_DIR}/prefix)
run(${CMAKE_COMMAND} --build ${consumer})
run_expecting("${expected_output}" ${emulator} ${consumer}/consumer)

# Through pkg-config.
pkg_config_flags(flags ${SCRATCH_DIR}/prefix)
separate_arguments(cxx_flags UNIX_COMMAND "${CXX_FLAGS}")
run(${CXX} ${cxx_flags} -std=c++17 ${SOURCE_DIR}/tests/consumer/main.cpp -o ${SCRATCH_DIR}/consumer-pkg-config ${flags})
run_expecting("${expected_output}" ${emulator} ${SCRATCH_DIR}/consumer-pkg-config)
