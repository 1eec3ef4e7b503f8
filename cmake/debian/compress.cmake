# Run by cpack over what a Debian package will hold: some files are compressed there, without the time of the day.

file(GLOB_RECURSE files ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/doc/*/changelog
    ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/*.1)
foreach(file IN LISTS files)
    execute_process(COMMAND gzip -9n ${file} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
