# Puts Flush.cpp into the library and into every test program, once these targets exist.
function(umbra_coverage_flush)
  target_sources(Umbra PRIVATE ${PROJECT_SOURCE_DIR}/tools/coverage/Flush.cpp)
  target_sources(gmock_main PRIVATE ${PROJECT_SOURCE_DIR}/tools/coverage/Flush.cpp)
  target_link_options(gmock_main INTERFACE -Wl,-u,umbraCoverageFlush)
endfunction()
cmake_language(DEFER CALL umbra_coverage_flush)
