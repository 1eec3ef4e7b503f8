# What `cmake --install` puts into the prefix. Everything in it is found relative to itself, so that the prefix can
# be moved as a whole. Components: `libraries` is what a program needs to run, `development` what it needs to be built;
# `tools` is motool, and `documentation`, which is installed only when it is asked for, the reference.

include(CMakePackageConfigHelpers)

set(MOTOOLKIT_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/motoolkit)
set(MOTOOLKIT_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/MoToolkit)

install(TARGETS MoBase MoStream MoToolkit
    EXPORT MoToolkitTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT libraries
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libraries NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ ${PROJECT_BINARY_DIR}/include/
    DESTINATION ${MOTOOLKIT_INSTALL_INCLUDEDIR} COMPONENT development
    FILES_MATCHING PATTERN "*.h")

install(EXPORT MoToolkitTargets
    NAMESPACE MoToolkit::
    DESTINATION ${MOTOOLKIT_INSTALL_CMAKEDIR} COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/MoToolkitConfig.cmake.in
    ${PROJECT_BINARY_DIR}/package/MoToolkitConfig.cmake
    INSTALL_DESTINATION ${MOTOOLKIT_INSTALL_CMAKEDIR}
    NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/MoToolkitConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
        ${PROJECT_BINARY_DIR}/package/MoToolkitConfig.cmake
        ${PROJECT_BINARY_DIR}/package/MoToolkitConfigVersion.cmake
    DESTINATION ${MOTOOLKIT_INSTALL_CMAKEDIR} COMPONENT development)

# Either directory may have been configured as an absolute one; cmake_path(APPEND) then takes it as it stands.
file(RELATIVE_PATH pc_prefix /${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig /${CMAKE_INSTALL_PREFIX})
cmake_path(NORMAL_PATH pc_prefix)
string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
set(pc_includedir "\${prefix}")
cmake_path(APPEND pc_includedir ${MOTOOLKIT_INSTALL_INCLUDEDIR})
set(pc_libdir "\${prefix}")
cmake_path(APPEND pc_libdir ${CMAKE_INSTALL_LIBDIR})
configure_file(${CMAKE_CURRENT_LIST_DIR}/motoolkit.pc.in ${PROJECT_BINARY_DIR}/package/motoolkit.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/motoolkit.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(WIN32)
    include(${CMAKE_CURRENT_LIST_DIR}/CompilerRuntime.cmake)
endif()

# GDB looks for the printers by the file name of the library that a program has loaded: for the system's own libraries
# in a folder that it trusts, else beside the library, where it asks for the user's trust (docs/debugger.md).
if(CMAKE_SYSTEM_NAME STREQUAL Linux)
    install(CODE "
        set(gdb_folder \"\${CMAKE_INSTALL_PREFIX}\")
        cmake_path(APPEND gdb_folder \"${CMAKE_INSTALL_LIBDIR}\")
        if(CMAKE_INSTALL_PREFIX STREQUAL /usr)
            set(gdb_folder \"/usr/share/gdb/auto-load\${gdb_folder}\")
        endif()
        file(INSTALL \"${PROJECT_SOURCE_DIR}/tools/gdb/printers.py\"
            DESTINATION \"\${gdb_folder}\" RENAME $<TARGET_FILE_NAME:MoBase>-gdb.py)
        " COMPONENT libraries)
endif()
