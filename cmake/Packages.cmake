# `cpack --config build/<preset>/CPackConfig.cmake` makes Debian packages: libmotoolkit1, the libraries, and
# motoolkit-tools, the program motool with its man page and completion. What they depend on is read from the binaries.

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL libraries)
if(TARGET motool)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_TOOLS_DEPENDS libraries)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "MoToolkit maintainers")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_NAME libmotoolkit${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARIES_DESCRIPTION "Foundation toolkit of a geographic information engine
 Shared libraries for text in many character sets, XML, configuration, logs,
 drawing styles, threads and a lock between processes.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME motoolkit-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "MoToolkit at the command line
 The program motool looks at XML documents, configurations, logs, drawing
 styles, texts and locks, and edits and converts them.")
include(CPack)
