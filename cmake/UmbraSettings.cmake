# Settings of the project's own targets. Nothing here is visible to a project that contains this one.
include(CheckCXXSourceCompiles)

# The library uses SSE2. Every 64-bit x86 compiler has it; a 32-bit one needs the flags, which belong
# to the targets, so that plain `-m32` or a native 32-bit compiler is enough.
set(UMBRA_MACHINE_FLAGS)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  check_cxx_source_compiles("
    #ifndef __i386__
    #error another machine
    #endif
    int main() {}" UMBRA_TARGET_IS_I386)
  if(UMBRA_TARGET_IS_I386)
    set(UMBRA_MACHINE_FLAGS -msse2 -mfpmath=sse)
  endif()
endif()
set(CMAKE_REQUIRED_FLAGS "${UMBRA_MACHINE_FLAGS}")
string(REPLACE ";" " " CMAKE_REQUIRED_FLAGS "${CMAKE_REQUIRED_FLAGS}")
check_cxx_source_compiles("
  #include <emmintrin.h>
  #ifndef __SSE2__
  #error off
  #endif
  int main() { return _mm_cvtsi128_si32(_mm_setzero_si128()); }" UMBRA_TARGET_HAS_SSE2)
unset(CMAKE_REQUIRED_FLAGS)
if(NOT UMBRA_TARGET_HAS_SSE2)
  message(FATAL_ERROR
    "Umbra needs SSE2: it is for x86 processors, 32-bit and 64-bit. ${CMAKE_CXX_COMPILER} "
    "(${CMAKE_SYSTEM_PROCESSOR}, flags '${CMAKE_CXX_FLAGS}') cannot compile for it.")
endif()

# umbra_settings(<target>): the language, the machine's flags and the linking of one of the project's
# own targets; with UMBRA_WERROR also the developers' warnings, all of them errors. Users build without
# the warnings: a newer compiler's opinion must not break them.
function(umbra_settings target)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  target_compile_options(${target} PRIVATE ${UMBRA_MACHINE_FLAGS})
  get_target_property(type ${target} TYPE)
  if(NOT type STREQUAL "STATIC_LIBRARY")
    # Relocated once and read-only from then on, no executable stack, no relocation in code.
    # tools/check/hardening looks at what came out.
    target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now -Wl,-z,noexecstack -Wl,-z,text)
  endif()
  if(UMBRA_WERROR)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow -Werror)
    # Where one width needs a cast that the other does not, runtime/Zint/Sizes.h has it.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND target MATCHES "^Umbra")
      target_compile_options(${target} PRIVATE -Wuseless-cast)
    endif()
    # clang counts a change of sign as a conversion, g++ does not. The libraries are held to the
    # stricter rule; for what is built around it g++'s is the rule.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND NOT target MATCHES "^Umbra")
      target_compile_options(${target} PRIVATE -Wno-sign-conversion)
    endif()
  endif()
endfunction()
