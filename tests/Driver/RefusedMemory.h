// Refuses memory to this program and the libraries in it.
#pragma once

#include <Zint/Types.h>

#include <new>

namespace Support {

// The next `granted` blocks are given, the one after them is refused, and all others are given.
void memoryRefusedAfter(U64 granted);
// Whether one was refused. None is from now on.
bool memoryWasRefused();

// Runs `body` again and again, each time with another of its blocks refused, and `afterwards` after
// each run that failed, until it has taken all it wants. The number of blocks.
template <class Body, class Afterwards>
U64 withEachBlockRefused(Body body, Afterwards afterwards) {
  for (U64 granted = 0;; ++granted) {
    memoryRefusedAfter(granted);
    try {
      body();
      if (!memoryWasRefused()) return granted;
    } catch (const std::bad_alloc&) {
      memoryWasRefused();
      afterwards();
    }
  }
}

}  // namespace Support
