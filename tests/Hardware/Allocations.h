// Counts what this program and the library in it take from the heap.
#pragma once

#include <Zint/Types.h>

namespace Support {

// Blocks taken so far.
U64 allocations();

// Blocks taken by `body`.
template <class Body>
U64 allocationsOf(Body body) {
  const U64 before = allocations();
  body();
  return allocations() - before;
}

}  // namespace Support
