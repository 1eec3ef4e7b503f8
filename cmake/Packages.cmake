# `cpack --config build/<preset>/CPackConfig.cmake` makes an archive that may be unpacked anywhere, and Debian packages:
# libmotoolkit1, the libraries; libmotoolkit-dev, what programs are built with; motoolkit-doc, the reference; and
# motoolkit-tools, the program motool with its man page and completion. What they depend on is read from the binaries.
# For Windows it makes one archive, in which everything lies that a program needs beside the system.

set(CPACK_STRIP_FILES ON)
if(WIN32)
    set(processor amd64)
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
        set(processor i386)
    endif()
    set(CPACK_GENERATOR ZIP)
    set(CPACK_PACKAGE_FILE_NAME motoolkit_${PROJECT_VERSION}_windows-${processor})
    install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/motoolkit
        COMPONENT libraries)
    include(CPack)
    return()
endif()

set(CPACK_GENERATOR DEB TXZ)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/PackageKinds.cmake)
set(CPACK_COMPONENTS_ALL libraries development)
if(DOXYGEN_FOUND AND Python3_FOUND)
    list(APPEND CPACK_COMPONENTS_ALL documentation)
endif()
if(TARGET motool)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS libraries)
set(CPACK_COMPONENT_TOOLS_DEPENDS libraries)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "MoToolkit maintainers <maintainers@motoolkit.example>" CACHE STRING
    "Who answers for the Debian packages")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)

set(CPACK_DEBIAN_LIBRARIES_PACKAGE_NAME libmotoolkit${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)
set(CPACK_COMPONENT_LIBRARIES_DESCRIPTION "foundation toolkit of a geographic information engine
Shared libraries for text in many character sets, XML, configuration, logs,
drawing styles, threads and a lock between processes.
GDB shows the types of these libraries by the printers in this package.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libmotoolkit-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS motoolkit-doc)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "headers of the MoToolkit libraries
What programs that use the MoToolkit libraries are built with: headers, and
files by which CMake and pkg-config find the libraries.")

set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_NAME motoolkit-doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SHLIBDEPS OFF)
set(CPACK_COMPONENT_DOCUMENTATION_DESCRIPTION "reference of the MoToolkit libraries
Guides, a description of every class, and examples, as a web site in
/usr/share/doc/motoolkit-doc/html.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME motoolkit-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "MoToolkit at the command line
The program motool looks at XML documents, configurations, logs, drawing
styles, texts and locks, and edits and converts them.")

# What Debian wants to find in every package.
configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in ${PROJECT_BINARY_DIR}/package/changelog @ONLY)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright ${PROJECT_BINARY_DIR}/package/changelog
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}
        COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
