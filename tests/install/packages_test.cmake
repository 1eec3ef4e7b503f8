# Makes the packages of a finished build, asks lintian about them, unpacks them into a root of their own, and uses what
# lies there: builds against it, and has GDB load the printers from it. Then the same with the archive, elsewhere.
#
# cmake -D BUILD_DIR=... -D SOURCE_DIR=... -D SCRATCH_DIR=... -P packages_test.cmake

include(${CMAKE_CURRENT_LIST_DIR}/consumer.cmake)

set(CXX g++)
set(GENERATOR Ninja)
set(packages ${SCRATCH_DIR}/packages)
set(root ${SCRATCH_DIR}/root)
file(REMOVE_RECURSE ${SCRATCH_DIR})
file(MAKE_DIRECTORY ${root} ${SCRATCH_DIR}/archive)
run(cpack --config ${BUILD_DIR}/CPackConfig.cmake -B ${packages})
file(GLOB debs ${packages}/*.deb)
list(LENGTH debs count)
if(NOT count EQUAL 4)
    message(FATAL_ERROR "Four Debian packages were to be made, not ${count}: ${debs}")
endif()
run(lintian --allow-root --fail-on error ${debs})

foreach(deb IN LISTS debs)
    run(dpkg -x ${deb} ${root})
endforeach()
foreach(file IN ITEMS share/doc/motoolkit-doc/html/index.html share/man/man1/motool.1.gz bin/motool)
    if(NOT EXISTS ${root}/usr/${file})
        message(FATAL_ERROR "No package has ${file}")
    endif()
endforeach()
check_consumer(${root}/usr ${SCRATCH_DIR})
run(${root}/usr/bin/motool --version)

# GDB looks for the printers under its own folder of scripts, where it adds the library's whole path: for this root, what
# the packages have in /usr/share/gdb/auto-load must be there under the root's path.
set(scripts ${SCRATCH_DIR}/auto-load)
file(MAKE_DIRECTORY ${scripts}${root})
file(CREATE_LINK ${root}/usr/share/gdb/auto-load/usr ${scripts}${root}/usr SYMBOLIC)
run(gdb -batch -ex "python assert '$datadir/auto-load' in gdb.parameter('auto-load scripts-directory')")
pkg_config_flags(flags ${root}/usr)
run(${CXX} -std=c++17 -g -O0 ${SOURCE_DIR}/tests/gdb/debuggee.cpp -o ${SCRATCH_DIR}/debuggee ${flags})
run(python3 ${SOURCE_DIR}/tests/gdb/gdb_test.py ${SCRATCH_DIR}/debuggee
    -iex "set auto-load scripts-directory ${scripts}:$datadir/auto-load" -iex "add-auto-load-safe-path ${root}")

file(GLOB archive ${packages}/*.tar.xz)
run(tar -xf ${archive} -C ${SCRATCH_DIR}/archive --strip-components=1)
check_consumer(${SCRATCH_DIR}/archive ${SCRATCH_DIR}/archive)
run(${SCRATCH_DIR}/archive/bin/motool --version)
message(STATUS "Four packages and an archive do what they should")
