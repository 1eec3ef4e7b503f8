# `cmake --build --preset docs` makes the reference, a web site: docs/html/index.html in the build folder.

find_package(Doxygen 1.9.4 QUIET)
find_package(Python3 COMPONENTS Interpreter QUIET)
if(NOT DOXYGEN_FOUND OR NOT Python3_FOUND)
    add_custom_target(docs
        COMMAND ${CMAKE_COMMAND} -E echo "The reference is made by Doxygen 1.9.4 or newer and Python 3; install them, then configure again"
        COMMAND ${CMAKE_COMMAND} -E false)
    return()
endif()

set(docs_source ${PROJECT_SOURCE_DIR})
set(docs_output ${PROJECT_BINARY_DIR}/docs)
set(docs_python ${Python3_EXECUTABLE})
set(docs_warnings NO)
if(MOTOOLKIT_WERROR)
    set(docs_warnings FAIL_ON_WARNINGS)
endif()
configure_file(${PROJECT_SOURCE_DIR}/docs/site/Doxyfile.in ${docs_output}/Doxyfile @ONLY)

file(GLOB_RECURSE docs_inputs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h ${PROJECT_SOURCE_DIR}/docs/*
    ${PROJECT_SOURCE_DIR}/examples/*.cpp)
add_custom_command(OUTPUT ${docs_output}/made
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${docs_output}/html
    COMMAND ${DOXYGEN_EXECUTABLE} ${docs_output}/Doxyfile
    COMMAND ${CMAKE_COMMAND} -E touch ${docs_output}/made
    DEPENDS ${docs_inputs} ${docs_output}/Doxyfile
    COMMENT "Making the reference"
    VERBATIM)
add_custom_target(docs DEPENDS ${docs_output}/made)

# Made when it is installed; nobody else waits for it.
install(CODE "
    execute_process(COMMAND \"${CMAKE_COMMAND}\" --build \"${PROJECT_BINARY_DIR}\" --target docs
        COMMAND_ERROR_IS_FATAL ANY)
    " COMPONENT documentation EXCLUDE_FROM_ALL)
install(DIRECTORY ${docs_output}/html DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/motoolkit-doc
    COMPONENT documentation EXCLUDE_FROM_ALL)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/motoolkit-doc
    COMPONENT documentation EXCLUDE_FROM_ALL)
