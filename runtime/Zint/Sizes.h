// Conversions between the project's 32 and 64 bits and std::size_t, which is the one or the other:
// where a cast is needed in one width only, it is written here.
#pragma once

#include <Zint/Types.h>

namespace Zint {

// The number of a standard container's members. REQUIRES: fewer than 2^32.
template <class Container>
constexpr U32 countOf(const Container& container) {
  return static_cast<U32>(container.size());
}

// REQUIRES: `number` fits, which a 64-bit one need not in 32 bits.
template <class Number>
constexpr std::size_t sizeOf(Number number) {
  return static_cast<std::size_t>(number);
}

}  // namespace Zint
