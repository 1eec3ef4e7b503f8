# Helpers of the scripts beside this one: each stops its script with what went wrong.

# What stands in front of the target's programs.
string(REPLACE "|" ";" emulator "${EMULATOR}")
set(exe)
if(OBJDUMP) # for Windows
    set(exe .exe)
    # Programs look for libraries beside them, and then by the path.
    string(REPLACE "/" "\\" path "Z:${SCRATCH_DIR}/prefix/bin")
    set(ENV{WINEPATH} "${path}")
    # What Wine starts in the background must not keep the pipes open that a program's output is read from.
    set(emulator sh -c "\"$@\" >\"$0.out\" 2>\"$0.err\" || status=$?
        cat \"$0.out\"
        cat \"$0.err\" >&2
        exit \${status:-0}" ${SCRATCH_DIR}/printed ${emulator})
endif()

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        list(JOIN ARGN " " command)
        message(FATAL_ERROR "Failed (${result}): ${command}\n${output}")
    endif()
endfunction()

# run_expecting(<standard output> <command>...): with its lines ended as they are here.
function(run_expecting expected)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output)
    string(REPLACE "\r\n" "\n" output "${output}")
    if(NOT result EQUAL 0 OR NOT output STREQUAL expected)
        list(JOIN ARGN " " command)
        message(FATAL_ERROR "${command} (${result}) printed\n${output}instead of\n${expected}")
    endif()
endfunction()

# pkg_config_flags(<variable> <prefix>): what compiles and links against the prefix; the program finds its libraries.
function(pkg_config_flags variable prefix)
    file(GLOB_RECURSE pc ${prefix}/motoolkit.pc)
    cmake_path(GET pc PARENT_PATH folder)
    set(ENV{PKG_CONFIG_PATH} ${folder})
    execute_process(COMMAND pkg-config --cflags --libs motoolkit
        OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    cmake_path(GET folder PARENT_PATH libdir)
    separate_arguments(flags UNIX_COMMAND "${flags}")
    set(${variable} ${flags} -Wl,-rpath,${libdir} PARENT_SCOPE)
endfunction()
