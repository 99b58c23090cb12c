# Debian packages, one per install component: `cpack -G DEB` in a build configured with
# -DCMAKE_INSTALL_PREFIX=/usr (README, "Installing"). dpkg-shlibdeps finds what each package
# needs at run time (fmt, libpcap, yaml-cpp); the -dev and tools packages name the exact
# runtime package they were built with. Each component's description starts with its summary.
set(CPACK_PACKAGE_NAME velt-routing)
set(CPACK_PACKAGE_VENDOR "libVeltRouting developers")
set(CPACK_PACKAGE_CONTACT "libVeltRouting developers <velt-routing@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_COMPONENTS_ALL runtime dev)
if(VELT_BUILD_TOOLS)
   list(APPEND CPACK_COMPONENTS_ALL tools)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# A shlibs file for the runtime package, so that packages built against it depend on it.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# The runtime package's libraries, for dpkg-shlibdeps looking at the tools and plugins.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})

set(velt_runtime_package libveltrouting${PROJECT_VERSION_MAJOR})
set(velt_exact_runtime "${velt_runtime_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${velt_runtime_package})
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "next-hop resolution for a switch's forwarding path: libraries
The shared libraries libVeltRouting and libVeltPlatform, and the resolver plugins
builtins and routeLookup.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libveltrouting-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${velt_exact_runtime}, libfmt-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION "next-hop resolution for a switch's forwarding path: development files
Headers under /usr/include/velt, the CMake package VeltRouting (with the plugin helper
velt_nhr_plugin) and the pkg-config file velt-routing.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME velt-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${velt_exact_runtime}")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "next-hop resolution for a switch's forwarding path: tools
velt resolves, replays and benchmarks on a switch state; velt-pcapgen writes test
captures; velt-ringlog prints binary trace rings.")

include(CPack)
