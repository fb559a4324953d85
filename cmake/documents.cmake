# Installs the documents for users of the library; runs at installation, after headers.cmake. If a page links to a
# public header, the installed page links to the installed header. A link to a file that is not installed becomes its
# text.
cmake_policy(VERSION 3.25)
file(REMOVE_RECURSE ${ZQCORE_DOCUMENTS_STAGING})
file(COPY ${ZQCORE_SOURCE_FOLDER}/README.md ${ZQCORE_SOURCE_FOLDER}/CHANGELOG.md ${ZQCORE_SOURCE_FOLDER}/docs
    DESTINATION ${ZQCORE_DOCUMENTS_STAGING}
    PATTERN style.md EXCLUDE PATTERN build.sh EXCLUDE PATTERN screenshots.sh EXCLUDE
    PATTERN filter.py EXCLUDE PATTERN Doxyfile EXCLUDE)
foreach(example programs host consume media)
    file(COPY ${ZQCORE_SOURCE_FOLDER}/examples/${example} DESTINATION ${ZQCORE_DOCUMENTS_STAGING}/examples)
endforeach()

file(GLOB_RECURSE pages RELATIVE ${ZQCORE_DOCUMENTS_STAGING} ${ZQCORE_DOCUMENTS_STAGING}/*.md)
foreach(page ${pages})
    file(READ ${ZQCORE_DOCUMENTS_STAGING}/${page} text)
    cmake_path(GET page PARENT_PATH folder)
    string(REGEX MATCHALL "\\[[^][]+\\]\\([A-Za-z0-9_./-]*[./][A-Za-z0-9_./-]*(#[a-z0-9-]+)?\\)" links "${text}")
    foreach(link IN LISTS links)
        string(REGEX MATCH "^\\[(.*)\\]\\(([^#]*).*\\)$" all "${link}")
        set(label "${CMAKE_MATCH_1}")
        cmake_path(SET target NORMALIZE "${folder}/${CMAKE_MATCH_2}")
        if(EXISTS ${ZQCORE_DOCUMENTS_STAGING}/${target})
            continue()
        endif()
        if(EXISTS ${ZQCORE_STAGING_FOLDER}/${target})
            file(RELATIVE_PATH path ${CMAKE_INSTALL_PREFIX}/${ZQCORE_DOCUMENTS_FOLDER}/${folder}
                ${CMAKE_INSTALL_PREFIX}/${ZQCORE_INCLUDE_FOLDER}/${target})
            set(label "[${label}](${path})")
        endif()
        string(REPLACE "${link}" "${label}" text "${text}")
    endforeach()
    file(WRITE ${ZQCORE_DOCUMENTS_STAGING}/${page} "${text}")
endforeach()
file(INSTALL ${ZQCORE_DOCUMENTS_STAGING}/ DESTINATION ${CMAKE_INSTALL_PREFIX}/${ZQCORE_DOCUMENTS_FOLDER})
