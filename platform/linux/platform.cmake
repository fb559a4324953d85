# What Linux adds to the library's build.

# Calls out of the library are bound at load and skip the procedure linkage table, so that a crash binds none.
set(ZQCORE_SYSTEM_COMPILE_OPTIONS -fno-plt)

# File sizes, inode numbers and times have 64 bits on i386 too. All sources of the library need this, because they pass
# the system's types to each other. Those that pass them to other libraries, as libzip, must not have it.
set(ZQCORE_SYSTEM_DEFINITIONS _FILE_OFFSET_BITS=64 _TIME_BITS=64)

set(ZQCORE_EXPORTS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
set(ZQCORE_SYSTEM_LINK_OPTIONS -Wl,-Bsymbolic-functions -Wl,--version-script=${ZQCORE_EXPORTS})

# The place where zqsymbols is installed: its path from the library's folder, and its full path.
file(RELATIVE_PATH ZQCORE_SYMBOLS_INSTALLED ${CMAKE_INSTALL_FULL_LIBDIR}
    ${CMAKE_INSTALL_FULL_LIBEXECDIR}/zqcore/zqsymbols)
set_source_files_properties(${ZQCORE_PLATFORM_FOLDER}/symbols.cpp PROPERTIES
    COMPILE_DEFINITIONS "ZQCORE_SYMBOLS_INSTALLED=\"${ZQCORE_SYMBOLS_INSTALLED}\";\
ZQCORE_SYMBOLS_FULL=\"${CMAKE_INSTALL_FULL_LIBEXECDIR}/zqcore/zqsymbols\"")

# The script with gdb's view of the library, for programs that have the library in them. Below another prefix gdb would
# not run it unasked.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(script ${CMAKE_INSTALL_FULL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}/libzqcore.so.${PROJECT_VERSION})
    set_property(SOURCE ${ZQCORE_PLATFORM_FOLDER}/symbols.cpp APPEND PROPERTY COMPILE_DEFINITIONS
        "ZQCORE_GDB_SCRIPT=\"${script}-gdb.py\"")
endif()

# The debug heap's report of lost blocks.
set(ZQCORE_HEAP_LEAKS platform/linux/heapleaks.cpp)
