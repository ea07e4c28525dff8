# umbra_warnings(<target>): the developers' warnings for one of the project's own targets, when
# UMBRA_WERROR is on. Users build without them: a newer compiler's opinion must not break them.
function(umbra_warnings target)
  if(UMBRA_WERROR)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow -Werror)
    # clang counts a change of sign as a conversion, g++ does not. The library is held to the
    # stricter rule; for what is built around it g++'s is the rule.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND NOT target STREQUAL "Umbra")
      target_compile_options(${target} PRIVATE -Wno-sign-conversion)
    endif()
  endif()
endfunction()
