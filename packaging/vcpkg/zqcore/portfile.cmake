# A port for an overlay (vcpkg install zqcore --overlay-ports=packaging/vcpkg) that builds the sources it lies in.
vcpkg_check_features(OUT_FEATURE_OPTIONS options FEATURES tools ZQCORE_TOOLS zip ZQCORE_ZIP)
vcpkg_cmake_configure(
    SOURCE_PATH "${CMAKE_CURRENT_LIST_DIR}/../../.."
    OPTIONS ${options} -DZQCORE_TESTS=OFF -DZQCORE_EXAMPLES=OFF)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(CONFIG_PATH lib/cmake/zqcore)
vcpkg_fixup_pkgconfig()
vcpkg_copy_tool_dependencies("${CURRENT_PACKAGES_DIR}/libexec/zqcore")
if("tools" IN_LIST FEATURES)
    vcpkg_copy_tools(TOOL_NAMES zqtool AUTO_CLEAN)
endif()
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share")
file(INSTALL "${CMAKE_CURRENT_LIST_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
file(INSTALL "${CMAKE_CURRENT_LIST_DIR}/../../debian/copyright" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
