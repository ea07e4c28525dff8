# Puts Flush.cpp into the library and into every test program, once these targets exist.
# And compiles everything alike: what is inlined for size would count at the wrong lines.
function(umbra_coverage_flush)
  set_source_files_properties(Hardware/Umbra.cpp PROPERTIES COMPILE_OPTIONS "")
  target_sources(Umbra PRIVATE ${PROJECT_SOURCE_DIR}/tools/coverage/Flush.cpp)
  target_sources(gmock_main PRIVATE ${PROJECT_SOURCE_DIR}/tools/coverage/Flush.cpp)
  target_link_options(gmock_main INTERFACE -Wl,-u,umbraCoverageFlush)
endfunction()
cmake_language(DEFER CALL umbra_coverage_flush)
