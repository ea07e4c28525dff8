# umbra_warnings(<target>): the developers' warnings for one of the project's own targets, when
# UMBRA_WERROR is on. Users build without them: a newer compiler's opinion must not break them.
function(umbra_warnings target)
  if(UMBRA_WERROR)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow -Werror)
  endif()
endfunction()
