// Counts what this program and the libraries in it take from the allocator: everything, as operator
// new takes from malloc.
#pragma once

#include <Zint/Types.h>

namespace Bench {

// Blocks taken so far, also those that replaced another one.
U64 allocations();
// Bytes in use, with what the allocator adds to each block.
U64 bytesInUse();

}  // namespace Bench
