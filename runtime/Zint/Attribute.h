// What every attribute is written with: its id, and the first line of its setter.
#pragma once

#include <Zint/Integers.h>

namespace Zint {

// Names one member of a type: 256 + its position in the type's member list, the members of the base
// type first. Stable per type.
using AttributeId = U32;

constexpr AttributeId firstAttributeId = 256;

// The setter's first line: false when the value is held already, else stores it.
template <class T, class V>
bool updated(T& held, const V& value) {
  if (held == value) return false;
  held = value;
  return true;
}

}  // namespace Zint
