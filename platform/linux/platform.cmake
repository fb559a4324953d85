# What Linux adds to the library's build.

# From the library's folder to where zqsymbols is installed.
file(RELATIVE_PATH ZQCORE_SYMBOLS_INSTALLED ${CMAKE_INSTALL_FULL_LIBDIR}
    ${CMAKE_INSTALL_FULL_LIBEXECDIR}/zqcore/zqsymbols)
set_source_files_properties(${ZQCORE_PLATFORM_FOLDER}/symbols.cpp PROPERTIES
    COMPILE_DEFINITIONS ZQCORE_SYMBOLS_INSTALLED="${ZQCORE_SYMBOLS_INSTALLED}")
