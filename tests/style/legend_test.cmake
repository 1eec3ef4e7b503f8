# Runs the legend example and compares what it draws with the copy that README.md shows.
#
# cmake -D STYLES=... -D SOURCE_DIR=... -D SCRATCH_DIR=... -P legend_test.cmake

include(${CMAKE_CURRENT_LIST_DIR}/../run.cmake)

file(MAKE_DIRECTORY ${SCRATCH_DIR})
run(${STYLES} ${SCRATCH_DIR}/legend.svg)
run(${CMAKE_COMMAND} -E compare_files ${SCRATCH_DIR}/legend.svg ${SOURCE_DIR}/docs/legend.svg)
