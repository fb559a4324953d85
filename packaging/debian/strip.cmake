# Debian's static libraries have no debug information. CPack moves that of programs and shared libraries itself.
file(GLOB_RECURSE archives ${CPACK_TEMPORARY_DIRECTORY}/*.a)
foreach(archive ${archives})
    execute_process(COMMAND strip --strip-debug --remove-section=.comment ${archive} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
