// The fixed-width integers and the small value types that everything is written in.
#pragma once

#include <Zint/Api.h>

#include <cstddef>
#include <cstdint>

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S32 = std::int32_t;
using S64 = std::int64_t;

namespace Zint {

// A count of seconds; a point in time is a count from the clock's own zero.
using Seconds = double;

// Names one member of a type: 256 + its position in the type's member list, the members of the base
// type first. Stable per type.
using AttributeId = U32;

constexpr AttributeId firstAttributeId = 256;

// The 32 bits in reverse order: bit 0 becomes bit 31.
constexpr U32 reversedBits(U32 bits) {
  bits = __builtin_bswap32(bits);
  bits = ((bits >> 4) & 0x0f0f0f0fu) | ((bits & 0x0f0f0f0fu) << 4);
  bits = ((bits >> 2) & 0x33333333u) | ((bits & 0x33333333u) << 2);
  return ((bits >> 1) & 0x55555555u) | ((bits & 0x55555555u) << 1);
}

// The setter's first line: false when the value is held already, else stores it.
template <class T, class V>
bool updated(T& held, const V& value) {
  if (held == value) return false;
  held = value;
  return true;
}

}  // namespace Zint
