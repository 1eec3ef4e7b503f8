# Installs a build into a scratch prefix and uses it as a stranger would, through CMake and through pkg-config.
#
# cmake -D BUILD_DIR=... -D SOURCE_DIR=... -D SCRATCH_DIR=... -D CXX=... -D GENERATOR=... -P install_test.cmake

include(${CMAKE_CURRENT_LIST_DIR}/consumer.cmake)

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

check_consumer(${SCRATCH_DIR}/prefix ${SCRATCH_DIR})
