# Installs the files by which gdb finds its view of the library; runs at installation. gdb looks beside the library, and
# in a folder of its own, below /usr, that holds the whole path of the library.
cmake_policy(VERSION 3.25)
set(beside ${CMAKE_INSTALL_PREFIX}/${ZQCORE_LIBRARY_FOLDER})
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(beside ${CMAKE_INSTALL_PREFIX}/${ZQCORE_DATA_FOLDER}/gdb/auto-load${beside})
endif()
file(RELATIVE_PATH folder ${beside} ${CMAKE_INSTALL_PREFIX}/${ZQCORE_GDB_FOLDER})
file(READ ${CMAKE_CURRENT_LIST_DIR}/../tools/gdb/load.py script)
string(REPLACE "FOLDER = \".\"" "FOLDER = \"${folder}\"" script "${script}")
foreach(library ${ZQCORE_LIBRARIES})
    file(WRITE ${ZQCORE_GDB_STAGING}/${library}-gdb.py "${script}")
    file(INSTALL ${ZQCORE_GDB_STAGING}/${library}-gdb.py DESTINATION ${beside})
endforeach()
