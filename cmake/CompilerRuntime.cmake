# For Windows: the compiler's run-time libraries beside ours, with their licences. Where those texts are not found, the
# libraries stay out, as do they with a compiler that has others.

set(runtime_folder ${CMAKE_INSTALL_DATADIR}/doc/motoolkit)
set(runtime_texts)
foreach(text IN ITEMS gcc-mingw-w64-base mingw-w64-common)
    if(EXISTS /usr/share/doc/${text}/copyright)
        list(APPEND runtime_texts ${text})
    endif()
endforeach()
list(LENGTH runtime_texts count)
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU" OR NOT count EQUAL 2 OR NOT EXISTS /usr/share/common-licenses/GPL-3)
    message(STATUS "The package will not have the compiler's run-time libraries: their licences are not found")
    return()
endif()

foreach(name IN ITEMS libstdc++-6 libwinpthread-1 libgcc_s_seh-1 libgcc_s_dw2-1 libgcc_s_sjlj-1)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name}.dll
        OUTPUT_VARIABLE library OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(EXISTS ${library}) # of libgcc_s there is one, by how exceptions travel
        set(stripped ${PROJECT_BINARY_DIR}/package/${name}.dll)
        execute_process(COMMAND ${CMAKE_STRIP} -o ${stripped} ${library} COMMAND_ERROR_IS_FATAL ANY)
        install(FILES ${stripped} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT libraries)
    endif()
endforeach()
foreach(text IN LISTS runtime_texts)
    install(FILES /usr/share/doc/${text}/copyright DESTINATION ${runtime_folder} RENAME ${text}.copyright
        COMPONENT libraries)
endforeach()
install(FILES /usr/share/common-licenses/GPL-3 DESTINATION ${runtime_folder} COMPONENT libraries)
