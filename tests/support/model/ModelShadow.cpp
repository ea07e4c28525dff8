// Shadows: registry, lookup, write path and read path.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "Model.h"

namespace Model {

int System::shadowCreate() {
  shadows_.emplace_back();
  return static_cast<int>(shadows_.size()) - 1;
}

void System::shadowDestroy(int handle) {
  Shadow& shadow = shadows_.at(handle);
  if (shadow.request != none) unobserve(shadow.request, {Actor::shadow, handle});
  shadow = Shadow{};
  shadow.alive = false;
}

// --- Registry.

void System::chipMemoryIs(int handle, int region) {
  if (region == none) {
    throw RangeError{
        "null _chipMemory parameter to mutator for Hardware::HardwareShadow::chipMemory not "
        "allowed\""};
  }
  Shadow& shadow = shadows_.at(handle);
  u64 address = regions_.at(region).address;
  auto present = shadow.registry.find(address);
  if (present != shadow.registry.end() && present->second == region) return;
  shadow.registry[address] = region;
  handleChipMemory(shadow, address);
}

int System::chipMemoryDel(int handle, u64 address) {
  Shadow& shadow = shadows_.at(handle);
  auto present = shadow.registry.find(address);
  if (present == shadow.registry.end()) return none;
  int removed = present->second;
  shadow.registry.erase(present);
  handleChipMemory(shadow, address);
  return removed;
}

void System::handleChipMemory(Shadow& shadow, u64 address) {
  require(shadow.state == State::unconfigured || shadow.overrideHardware,
          "state_ == unconfigured_ || overrideHardware_",
          "void Hardware::HardwareShadow::handleChipMemory(const Hardware::ChipAddress&)");
  auto present = shadow.registry.find(address);
  if (present == shadow.registry.end()) {
    if (tracing(0)) {
      trace(0, "handleChipMemory", 0,
            "ChipMemory with address=" + addressText(address) + " removed");
    }
    shadow.last = none;
    return;
  }
  if (tracing(0)) {
    const Region& region = regions_.at(present->second);
    trace(0, "handleChipMemory", 0,
          "ChipMemory: " + region.name + " address=" + addressText(address) +
              " entries=" + decimal(region.entries) + " entrySize=" + decimal(region.entrySize) +
              " stride=" + decimal(region.stride) + " indirectAddress=0x" +
              hexadecimal(region.indirectCmdRegAddr));
  }
}

// The bulk removals run no reaction: no check, no trace, the last region found is kept.

void System::chipMemoryDelAll(int handle) { shadows_.at(handle).registry.clear(); }

void System::removeOverrideOnlyChipMem(int handle) {
  auto& registry = shadows_.at(handle).registry;
  for (auto member = registry.begin(); member != registry.end();) {
    if (regions_.at(member->second).mode == Mode::override_) {
      member = registry.erase(member);
    } else {
      ++member;
    }
  }
}

// --- Lookup.

int System::findChipMemory(int handle, u64 address, u32 size) {
  static const char* function =
      "Hardware::ChipMemory::Ptr Hardware::HardwareShadow::findChipMemory("
      "const Hardware::ChipAddress&, U32)";
  Shadow& shadow = shadows_.at(handle);
  if (shadow.last != none && inRange(shadow.last, address)) {
    const Region& region = regions_.at(shadow.last);
    if (!region.allowsLogicalViews) {
      guard(region.entrySize != 0, "entry size 0");
      require(size % region.entrySize == 0,
              "lastChipMemory_->allowsLogicalViews() || ( size % lastChipMemory_->entrySize() ) "
              "== 0",
              function);
    }
    return shadow.last;
  }
  auto chunk = shadow.index.find(static_cast<u32>(address >> 32));
  if (chunk == shadow.index.end()) return none;
  auto above = chunk->second.upper_bound(static_cast<u32>(address));
  if (above == chunk->second.begin()) return none;
  int found = std::prev(above)->second;
  if (!inRange(found, address)) return none;
  const Region& region = regions_.at(found);
  if (!region.allowsLogicalViews) {
    guard(region.entrySize != 0, "entry size 0");
    require(size % region.entrySize == 0,
            "cm->allowsLogicalViews() || ( size % cm->entrySize() ) == 0", function);
  }
  shadow.last = found;
  return found;
}

void System::lastChipMemoryIs(int shadow, int region) { shadows_.at(shadow).last = region; }

void System::indexClear(int shadow) { shadows_.at(shadow).index.clear(); }

// --- Write path.

bool System::shadowWriteAndCompareWithCache(int handle, int regionHandle, u32 entry, const u8* data,
                                            u32 size) {
  static const char* function =
      "bool Hardware::HardwareShadow::shadowWriteAndCompareWithCache("
      "const Hardware::ChipMemory::Ptr&, U32, U8*, U32)";
  if (regionHandle == none) return false;
  const Shadow& shadow = shadows_.at(handle);
  Region& region = regions_.at(regionHandle);
  if (region.mode == Mode::override_) return true;
  if (tracing(9)) {
    trace(9, "shadowWriteAndCompareWithCache", 0,
          "HardwareShadow::shadowWrite " + region.name + " entry 0x" + hexadecimal(entry) +
              " size 0x" + hexadecimal(size));
  }
  require(region.shadow.has_value(), "shadowBuf", function);
  require(region.dirty.has_value(), "dirtyBuf", function);
  require(region.initialized.has_value(), "initializedBuf", function);
  guard(region.entrySize != 0, "entry size 0");
  u32 numEntries = size / region.entrySize;
  require(size % region.entrySize == 0, "size % cm->entrySize() == 0", function);
  require(u64{entry} + numEntries <= region.entries, "entry + numEntries <= cm->entries()",
          function);
  guard((u64{entry} + numEntries) * region.entrySize <= region.shadow->size() || numEntries == 0,
        "shadow smaller than the range");
  const bool refuses = methods_.at(region.method).refuseWriteToCache;
  bool result = true;
  for (u32 i = 0; i < numEntries; i++) {
    u32 index = entry + i;
    const u8* source = data + std::size_t{i} * region.entrySize;
    u8* destination = region.shadow->data() + std::size_t{index} * region.entrySize;
    if (region.skipWriteIfMatchesCache && bitAt(*region.initialized, index) &&
        std::memcmp(destination, source, region.entrySize) == 0) {
      if (tracing(7)) {
        trace(7, "shadowWriteAndCompareWithCache", 0,
              "Write hit cache " + region.name + " entry 0x" + hexadecimal(index));
      }
      region.writeCacheHits++;
      continue;
    }
    if (!refuses) {
      std::memcpy(destination, source, region.entrySize);
      setBit(*region.dirty, index);
      setBit(*region.initialized, index);
    }
    result = region.mode == Mode::buffered;
  }
  return result || shadow.overrideHardware;
}

void System::shadowWriteHack(int shadow, u64 address, const u8* data, u32 size) {
  int region = findChipMemory(shadow, address, size);
  if (region == none) return;
  shadowWriteAndCompareWithCache(shadow, region, entryIndexFromAddress(region, address), data,
                                 size);
}

void System::shadowWriteU32(int shadow, u64 address, u32 value) {
  u8 bytes[4];
  std::memcpy(bytes, &value, 4);
  shadowWriteHack(shadow, address, bytes, 4);
}

// --- Read path.

bool System::readFromCache(int handle, int regionHandle, u32 entry, u8* data, u32 size) {
  static const char* function =
      "bool Hardware::HardwareShadow::readFromCache(const Hardware::ChipMemory::Ptr&, U32, U8*, "
      "U32)";
  const Shadow& shadow = shadows_.at(handle);
  require(shadow.state != State::unconfigured, "state_ != unconfigured()", function);
  if (regionHandle == none) return false;
  Region& region = regions_.at(regionHandle);
  if (!region.readFromCache && !shadow.overrideHardware) return false;
  if (region.mode == Mode::override_) {
    std::fill_n(data, size, u8{0});
    return true;
  }
  require(region.shadow.has_value(), "shadowBuf", function);
  require(region.initialized.has_value(), "initializedBuf", function);
  guard(region.entrySize != 0, "entry size 0");
  u32 numEntries = size / region.entrySize;
  require(u64{entry} + numEntries <= region.entries, "( entry + numEntries ) <= cm->entries()",
          function);
  // A partial entry may begin after the last entry; there the shadow reads as zeros.
  guard((u64{entry} + numEntries) * region.entrySize <= region.shadow->size() || size == 0,
        "shadow smaller than the range");
  // Groups end where a byte of the bitmap ends.
  u32 first = entry;
  u32 left = numEntries;
  while (left > 0) {
    u32 group = std::min(8 - first % 8, left);
    bool known = true;
    for (u32 i = 0; i < group; i++) known = known && bitAt(*region.initialized, first + i);
    if (!known && !shadow.overrideHardware) {
      if (tracing(7)) {
        trace(7, "readFromCache", 0,
              "Read miss cache " + region.name + " " + decimal(group) + " entries starting at " +
                  decimal(first) + " not in cache, will read from hardware");
      }
      return false;
    }
    if (!known && tracing(4)) {
      trace(4, "readFromCache", 0,
            region.name + ": accessing uninitialized entry " + decimal(first), "<unknown>");
    }
    first += group;
    left -= group;
  }
  region.readCacheHits += numEntries;
  if (tracing(7)) {
    trace(7, "readFromCache", 0,
          "Read hit cache " + region.name + " " + decimal(numEntries) + " entries starting at 0x" +
              hexadecimal(entry));
  }
  if (size == 0) return true;
  if (methods_.at(region.method).refuseReadFromCache) return false;
  for (u32 i = 0; i < size; i++) {
    u64 position = u64{entry} * region.entrySize + i;
    data[i] = position < region.shadow->size()
                  ? (*region.shadow)[static_cast<std::size_t>(position)]
                  : u8{0};
  }
  return true;
}

bool System::readFromCacheHack(int shadow, u64 address, u8* data, u32 size) {
  int region = findChipMemory(shadow, address, size);
  if (region == none) return false;
  return readFromCache(shadow, region, entryIndexFromAddress(region, address), data, size);
}

u32 System::readFromCacheU32(int shadow, u64 address) {
  u8 bytes[4];
  u32 value = 0;
  if (readFromCacheHack(shadow, address, bytes, 4)) std::memcpy(&value, bytes, 4);
  return value;
}

}  // namespace Model
