// What every attribute is written with: its id, and the first line of its setter.
#pragma once

#include <Zint/Integers.h>

namespace Zint {

// Names one member of a type: 256 + its position in the type's member list, the members of the base
// type first. Stable per type.
using AttributeId = U32;

constexpr AttributeId firstAttributeId = 256;

// A set of attributes, one bit for each: what a notifiee is to be notified of. From the 64th
// attribute of a type on, all share the last bit, and so do ids below firstAttributeId.
using Interest = U64;

constexpr Interest everyAttribute = ~Interest{0};

constexpr Interest interestIn(AttributeId attribute) {
  constexpr AttributeId last = firstAttributeId + 63;
  const bool hasOwn = attribute >= firstAttributeId && attribute < last;
  return Interest{1} << (hasOwn ? attribute - firstAttributeId : 63);
}

// The setter's first line: false when the value is held already, else stores it.
template <class T, class V>
bool updated(T& held, const V& value) {
  if (held == value) return false;
  held = value;
  return true;
}

}  // namespace Zint
