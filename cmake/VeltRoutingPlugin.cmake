# velt_nhr_plugin(<name> <dir> <sources...>): a resolver plugin, the library
# <dir>/NhrPlugin/lib<name>.so that the root loads when VELT_NHR_PLUGINS names <name> and <dir>
# is on the plugin search path. The same helper serves this tree and projects that use the
# installed package (find_package(VeltRouting)).
function(velt_nhr_plugin name dir)
   add_library(${name} MODULE ${ARGN})
   target_link_libraries(${name} PRIVATE VeltRouting::VeltRouting)
   set_target_properties(${name} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${dir}/NhrPlugin)
endfunction()
