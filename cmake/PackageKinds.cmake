# Read by cpack once for each kind of package.

if(CPACK_GENERATOR STREQUAL DEB)
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    unset(CPACK_PACKAGE_DESCRIPTION_SUMMARY) # would come before that of each package
    set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian/compress.cmake)
endif()
