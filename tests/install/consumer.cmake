# Uses an installed toolkit as a stranger would.

include(${CMAKE_CURRENT_LIST_DIR}/../run.cmake)

# check_consumer(<prefix> <folder to build in>): through CMake and through pkg-config.
function(check_consumer prefix folder)
    set(expected_output "E4 B8 AD E6 96 87 from a stream of 8 bytes\n")

    set(consumer ${folder}/consumer)
    run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/consumer -B ${consumer} -G ${GENERATOR}
        -D CMAKE_CXX_COMPILER=${CXX} -D "CMAKE_CXX_FLAGS=${CXX_FLAGS}" -D "CMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}"
        -D CMAKE_PREFIX_PATH=${prefix})
    run(${CMAKE_COMMAND} --build ${consumer})
    run_expecting("${expected_output}" ${emulator} ${consumer}/consumer)

    pkg_config_flags(flags ${prefix})
    separate_arguments(cxx_flags UNIX_COMMAND "${CXX_FLAGS}")
    run(${CXX} ${cxx_flags} -std=c++17 ${SOURCE_DIR}/tests/consumer/main.cpp -o ${folder}/consumer-pkg-config ${flags})
    run_expecting("${expected_output}" ${emulator} ${folder}/consumer-pkg-config)
endfunction()
