# What `cmake --install` puts under the prefix, by component (one Debian package each):
#   runtime  the two shared libraries and the shipped plugins
#   dev      headers under <includedir>/velt, the libraries' development links, the CMake
#            package (find_package(VeltRouting)) and velt-routing.pc
#   tools    velt, velt-pcapgen, velt-ringlog (installed from tools/)
include(CMakePackageConfigHelpers)

set(VELT_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VeltRouting)

install(TARGETS VeltPlatform VeltRouting EXPORT VeltRoutingTargets
   LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)

# "VeltLib/X.h" from the tree's root, "Kor/X.h" from platform/: the same layout below
# <includedir>/velt, the exported include directory.
install(DIRECTORY VeltLib platform/ DESTINATION ${VELT_HEADER_DIR} COMPONENT dev
        FILES_MATCHING PATTERN "*.h")

install(EXPORT VeltRoutingTargets NAMESPACE VeltRouting:: DESTINATION ${VELT_CMAKE_DIR}
        COMPONENT dev)
configure_package_config_file(cmake/VeltRoutingConfig.cmake.in
   ${PROJECT_BINARY_DIR}/VeltRoutingConfig.cmake INSTALL_DESTINATION ${VELT_CMAKE_DIR}
   PATH_VARS VELT_PLUGIN_INSTALL_DIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VeltRoutingConfigVersion.cmake
   COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VeltRoutingConfig.cmake
              ${PROJECT_BINARY_DIR}/VeltRoutingConfigVersion.cmake
              cmake/VeltRoutingPlugin.cmake
        DESTINATION ${VELT_CMAKE_DIR} COMPONENT dev)

# pkg-config: the prefix is found from the .pc file's own place, so a moved prefix still works.
file(RELATIVE_PATH VELT_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" VELT_PC_TO_PREFIX "${VELT_PC_TO_PREFIX}")
configure_file(cmake/velt-routing.pc.in ${PROJECT_BINARY_DIR}/velt-routing.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/velt-routing.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
