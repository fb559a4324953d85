# Debian's static libraries have no debug information, but the name of gdb's script. CPack moves that of programs and
# shared libraries itself.
file(GLOB_RECURSE archives ${CPACK_TEMPORARY_DIRECTORY}/*.a)
foreach(archive ${archives})
    execute_process(COMMAND strip --strip-debug --keep-section=.debug_gdb_scripts --remove-section=.comment ${archive}
        COMMAND_ERROR_IS_FATAL ANY)
endforeach()

# Debian's manual pages are compressed.
file(GLOB_RECURSE pages ${CPACK_TEMPORARY_DIRECTORY}/*.1)
list(FILTER pages INCLUDE REGEX "/man1/")
foreach(page ${pages})
    execute_process(COMMAND gzip -9n ${page} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
