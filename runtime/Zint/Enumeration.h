// What the runtime knows of an enumeration: its names, in the order of their numbers from 0 on.
#pragma once

#include <Zint/Strep.h>
#include <span>

namespace Zint {

struct Enumeration {
  const char* qualifiedName;  // "ChipMemory::ChipMemoryMode", for unknown numbers
  const char* name;           // "ChipMemoryMode", for unknown texts
  std::span<const char* const> values;
};

// The name, or "QUALIFIED(number)" for a number without one.
UMBRA_API String8 enumerationText(const Enumeration& enumeration, S32 value);
// The number if it has a name, else the range exception with the qualified name.
UMBRA_API S32 enumerationInstance(const Enumeration& enumeration, U32 value);
// The number of an exactly equal name, else the range exception with the short name.
UMBRA_API S32 enumerationInstance(const Enumeration& enumeration, const String8& text);
// Reads a name as a String8 is read, and leaves `pos` after it. An exception leaves `pos` as it
// was.
UMBRA_API S32 readEnumeration(const Enumeration& enumeration, String8::IteratorConst& pos,
                              const String8::IteratorConst& end);

}  // namespace Zint
