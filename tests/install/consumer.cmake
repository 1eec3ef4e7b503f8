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
    run_expecting("${expected_output}" ${emulator} ${consumer}/consumer${exe})
    check_configuration(${consumer})

    pkg_config_flags(flags ${prefix})
    separate_arguments(cxx_flags UNIX_COMMAND "${CXX_FLAGS}")
    run(${CXX} ${cxx_flags} -std=c++17 ${SOURCE_DIR}/tests/consumer/consumer.cpp -o ${folder}/consumer-pkg-config${exe}
        ${flags})
    run_expecting("${expected_output}" ${emulator} ${folder}/consumer-pkg-config${exe})
endfunction()

# A configuration is read alike in every charset that the process may have. The code page comes with the language.
function(check_configuration consumer)
    set(ENV{LC_ALL} C.UTF-8)
    if(NOT OBJDUMP)
        run_expecting("right in UTF-8, converted\n" ${emulator} ${consumer}/configuration${exe})
        return()
    endif()
    run_expecting("right in WINDOWS-1252, as it was\n" ${emulator} ${consumer}/configuration${exe})
    set(ENV{LOCPATH} ${consumer})
    foreach(language charset IN ZIP_LISTS languages charsets)
        run(localedef -i ${language} -f UTF-8 ${consumer}/${language}.UTF-8)
        set(ENV{LC_ALL} ${language}.UTF-8)
        run_expecting("right in ${charset}, converted\n" ${emulator} ${consumer}/configuration${exe})
    endforeach()
endfunction()
set(languages zh_TW ja_JP)
set(charsets BIG5 WINDOWS-31J)
