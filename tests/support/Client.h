// How a driver accesses a region: the shadow first, the chip where the shadow says so.
#pragma once

#include <Hardware/HardwareShadow.h>

namespace Support {

// Writes whole entries from `entry` on. Returns whether the chip was spared.
inline bool clientWrite(Hardware::HardwareShadow& shadow, const Hardware::ChipMemory::Ptr& region,
                        U32 entry, U8* data, U32 size) {
  if (shadow.shadowWriteAndCompareWithCache(region, entry, data, size)) return true;
  region->chipHam()->doWrite(region->entryAddress(entry), data, region->entrySize(),
                             size / region->entrySize());
  return false;
}
inline bool clientWrite(Hardware::HardwareShadow& shadow, const Hardware::ChipMemory::Ptr& region,
                        U32 entry, U32 value) {
  return clientWrite(shadow, region, entry, reinterpret_cast<U8*>(&value), sizeof value);
}

// Reads one entry of four bytes; what the chip says is offered to the shadow.
inline U32 clientRead(Hardware::HardwareShadow& shadow, const Hardware::ChipMemory::Ptr& region,
                      U32 entry) {
  U32 value = 0;
  U8* data = reinterpret_cast<U8*>(&value);
  if (shadow.readFromCache(region, entry, data, sizeof value)) return value;
  region->chipHam()->doRead(region->entryAddress(entry), data, sizeof value, 1);
  shadow.shadowWriteAndCompareWithCache(region, entry, data, sizeof value);
  return value;
}

}  // namespace Support
