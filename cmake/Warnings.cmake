# Settings that every target of this project builds with. Directory-wide on purpose: no target is left out.

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(MOTOOLKIT_WERROR)
    add_compile_options(-Werror)
endif()

# An assertion names its source file; it names it as the project does, not as the build machine does.
add_compile_options(-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)

if(MOTOOLKIT_SANITIZE)
    add_compile_options(-fsanitize=${MOTOOLKIT_SANITIZE} -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${MOTOOLKIT_SANITIZE})
    if(MOTOOLKIT_SANITIZE MATCHES "undefined")
        add_compile_options(-fno-sanitize-recover=undefined)
    endif()
else()
    # A library that has left a symbol undefined fails here, not when somebody loads it.
    # (Sanitizer builds leave their run-time's symbols to the executable.)
    set(CMAKE_SHARED_LINKER_FLAGS "${CMAKE_SHARED_LINKER_FLAGS} -Wl,--no-undefined")
endif()
