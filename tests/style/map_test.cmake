# Runs the example of styles and compares the map that it draws with the copy that README.md shows: well-formed XML,
# of less than 60 kB.
#
# cmake -D STYLES=... -D XMLLINT=... -D SOURCE_DIR=... -D SCRATCH_DIR=... -P map_test.cmake

include(${CMAKE_CURRENT_LIST_DIR}/../run.cmake)

set(map ${SCRATCH_DIR}/map.svg)
file(MAKE_DIRECTORY ${SCRATCH_DIR})
run(${emulator} ${STYLES} ${map})
run(${CMAKE_COMMAND} -E compare_files ${map} ${SOURCE_DIR}/docs/map.svg)
run(${XMLLINT} --noout ${map})
file(SIZE ${map} size)
if(size GREATER_EQUAL 60000)
    message(FATAL_ERROR "${map} has ${size} bytes")
endif()
