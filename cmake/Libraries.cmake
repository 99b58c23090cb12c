# libVeltPlatform and libVeltRouting, from the sources the folders registered. Both are
# versioned shared libraries (libX.so.<major> is the SONAME); users include headers the way
# the tree does ("Kor/Map.h", "VeltLib/..."), from the source folders here and from
# <includedir>/velt once installed.
set(VELT_HEADER_DIR ${CMAKE_INSTALL_INCLUDEDIR}/velt)
# Where the loader looks by default beside an installed libVeltPlatform.
set(VELT_PLUGIN_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/velt/plugins)

get_property(platform_sources GLOBAL PROPERTY VELT_PLATFORM_SOURCES)
add_library(VeltPlatform SHARED ${platform_sources})
target_include_directories(VeltPlatform PUBLIC
   $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
   $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/platform>
   $<INSTALL_INTERFACE:${VELT_HEADER_DIR}>)
target_link_libraries(VeltPlatform PUBLIC fmt::fmt ${CMAKE_DL_LIBS})

get_property(lib_sources GLOBAL PROPERTY VELT_LIB_SOURCES)
add_library(VeltRouting SHARED ${lib_sources})
target_link_libraries(VeltRouting PUBLIC VeltPlatform)

foreach(lib VeltPlatform VeltRouting)
   # $ORIGIN: a library in a relocated prefix still finds its sibling.
   set_target_properties(${lib} PROPERTIES VERSION ${PROJECT_VERSION}
      SOVERSION ${PROJECT_VERSION_MAJOR} INSTALL_RPATH "$ORIGIN")
   add_library(VeltRouting::${lib} ALIAS ${lib})
endforeach()
