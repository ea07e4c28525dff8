// Keeps a chip that disappears from ending the process: the fault of an access to one of our own
// mappings is replaced by memory of all-ones, and remembered. All other faults go to the handler
// that was there before, or end the process as without this.
//
// Used by MappedBus where its options ask for it. Safe with several mappings and threads.
#pragma once

#include <Zint/Api.h>

#include <cstddef>

namespace Platform::SigbusGuard {

// Mappings that can be guarded at a time.
constexpr std::size_t mappings = 64;

// Installs the handler; only the first call does. REQUIRES: before the first mapping that is
// guarded. A handler that the program installs later takes its place.
UMBRA_API void install();
// The place of the mapping; -1: there are `mappings` already. REQUIRES: nobody accesses the mapping
// any more when it is removed; a place is removed once.
UMBRA_API int add(void* mapping, std::size_t size);
UMBRA_API void remove(int place);
// Whether an access to that mapping has faulted since it was added.
UMBRA_API bool hasFaulted(int place);

}  // namespace Platform::SigbusGuard
