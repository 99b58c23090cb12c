# One-line helpers: a platform framework, a library module, a test or a benchmark is a single call.
# The plugin helper has a file of its own, since the installed package ships it too.

# velt_platform(<Framework> <sources...>): adds a framework's sources to libVeltPlatform.
function(velt_platform framework)
   set(srcs)
   foreach(s ${ARGN})
      list(APPEND srcs ${CMAKE_CURRENT_SOURCE_DIR}/${s})
   endforeach()
   set_property(GLOBAL APPEND PROPERTY VELT_PLATFORM_SOURCES ${srcs})
endfunction()

# velt_module(<Module>): adds VeltLib/<Module>.cpp to libVeltRouting.
function(velt_module name)
   set_property(GLOBAL APPEND PROPERTY VELT_LIB_SOURCES
                ${PROJECT_SOURCE_DIR}/VeltLib/${name}.cpp)
endfunction()

# velt_test(<name> <sources...>): a GoogleTest binary registered with CTest.
function(velt_test name)
   add_executable(${name} ${ARGN})
   target_link_libraries(${name} PRIVATE VeltRouting GTest::gmock_main)
   gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
                        PROPERTIES ENVIRONMENT "VELT_TEST_TMP=${CMAKE_BINARY_DIR}/tmp")
endfunction()

# velt_bench(<name> <sources...>): a Google Benchmark binary (built, not run by CTest).
function(velt_bench name)
   add_executable(${name} ${ARGN})
   target_link_libraries(${name} PRIVATE VeltRouting benchmark::benchmark_main)
endfunction()

include(${CMAKE_CURRENT_LIST_DIR}/VeltRoutingPlugin.cmake)
