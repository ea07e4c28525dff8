// What the shared library shows to its users; everything else is hidden. Every public header
// includes this one.
#pragma once

#if __cplusplus <= 201703L
#error "Umbra needs C++20: compile with -std=c++20 or later"
// A header that does not exist: the compiler stops here, before hundreds of errors that follow.
#include <compile with -std=c++20>
#endif

#define UMBRA_API __attribute__((visibility("default")))
