// Regions: buffers, modes, clearing, write-back and the directory that makes them by name.
#include <utility>

#include "Model.h"

namespace Model {

namespace {
u32 sizeInBytes(const Region& region) { return region.entrySize * region.entries; }
u32 bitmapSize(const Region& region) { return (region.entries >> 3) + 1; }
u64 entryAddress(const Region& region, u32 entry) {
  return region.address + region.stride * entry;  // the product has 32 bits
}
}  // namespace

int System::regionCreate(const std::string& name, u64 address, u32 entries, u32 entrySize,
                         u32 stride, int method) {
  Region region;
  region.name = name;
  region.address = address;
  region.entries = entries;
  region.entrySize = entrySize;
  region.stride = stride;
  region.method = method;
  handleShadowStoreNeeded(region);
  handleAuditEnabled(region);
  handleShadowStoreNeeded(region);
  regions_.push_back(std::move(region));
  return static_cast<int>(regions_.size()) - 1;
}

void System::handleShadowStoreNeeded(Region& region) {
  if (region.shadowStoreNeeded()) {
    region.shadow = Bytes(sizeInBytes(region), 0);
    region.dirty = Bytes(bitmapSize(region), 0);
    region.initialized = Bytes(bitmapSize(region), 0);
  } else {
    region.shadow.reset();
    region.dirty.reset();
    region.initialized.reset();
  }
}

void System::handleAuditEnabled(Region& region) {
  require(!region.auditEnabled || region.mode != Mode::override_,
          "!auditEnabled() || (mode() != override())",
          "void Hardware::ChipMemory::handleAuditEnabled()", 233);
  // An existing buffer keeps its size for life, also when the number of entries changes.
  if (!region.hardware && region.mode != Mode::override_) {
    region.hardware = Bytes(sizeInBytes(region), 0);
  }
}

void System::handleMode(int handle) {
  const Region& region = regions_.at(handle);
  if (region.mode != Mode::normal) return;
  if (tracing(0)) {
    trace(0, "handleMode", 255, region.name + ": Init done - writing back all shadows");
  }
  writeback(handle, false);
}

void System::entriesIs(int handle, u32 entries) {
  Region& region = regions_.at(handle);
  if (region.entries == entries) return;
  region.entries = entries;
  handleShadowStoreNeeded(region);
}

void System::indirectCmdRegAddrIs(int region, u32 address) {
  regions_.at(region).indirectCmdRegAddr = address;
}

void System::shadowEnabledIs(int handle, bool enabled) {
  Region& region = regions_.at(handle);
  if (region.shadowEnabled == enabled) return;
  region.shadowEnabled = enabled;
  handleShadowStoreNeeded(region);
}

void System::auditEnabledIs(int handle, bool enabled) {
  Region& region = regions_.at(handle);
  if (region.auditEnabled == enabled) return;
  region.auditEnabled = enabled;
  handleAuditEnabled(region);
}

void System::modeIs(int handle, Mode mode) {
  Region& region = regions_.at(handle);
  if (region.mode == mode) return;
  region.mode = mode;
  handleMode(handle);
  handleShadowStoreNeeded(region);
}

void System::readFromCacheIs(int region, bool enabled) {
  regions_.at(region).readFromCache = enabled;
}

void System::skipWriteIfMatchesCacheIs(int region, bool enabled) {
  regions_.at(region).skipWriteIfMatchesCache = enabled;
}

void System::allowsLogicalViewsIs(int region, bool enabled) {
  regions_.at(region).allowsLogicalViews = enabled;
}

void System::hardwareDel(int region) { regions_.at(region).hardware.reset(); }
void System::shadowDel(int region) { regions_.at(region).shadow.reset(); }
void System::initializedDel(int region) { regions_.at(region).initialized.reset(); }
void System::dirtyDel(int region) { regions_.at(region).dirty.reset(); }

void System::doClear(int handle) {
  Region& region = regions_.at(handle);
  if (region.mode == Mode::override_) return;
  guard(region.shadow && region.dirty && region.initialized, "clear without a shadow store");
  for (u8& byte : *region.shadow) byte = 0;
  for (u8& byte : *region.dirty) byte = 0xFF;
  for (u8& byte : *region.initialized) byte = 0xFF;
}

void System::doClearRange(int handle, u32 startIndex, u32 endIndex, bool writeThrough) {
  static const char* function = "void Hardware::ChipMemory::doClearRange(U32, U32, bool)";
  Region& region = regions_.at(handle);
  if (region.mode == Mode::override_) return;
  require(endIndex <= region.entries, "endIndex <= entries()", function, 186);
  require(startIndex <= endIndex, "startIndex <= endIndex", function, 187);
  guard(region.shadow && region.dirty && region.initialized, "clear without a shadow store");
  guard(u64{endIndex} * region.entrySize <= region.shadow->size(), "shadow smaller than the range");
  const Bytes zeros(region.entrySize, 0);
  for (u64 entry = startIndex; entry <= endIndex; entry++) {
    u32 index = static_cast<u32>(entry);
    setBit(*region.dirty, index);
    // The last index may be one past the shadow; those bytes are not written.
    for (u64 byte = entry * region.entrySize; byte < (entry + 1) * region.entrySize; byte++) {
      if (byte < region.shadow->size()) (*region.shadow)[static_cast<std::size_t>(byte)] = 0;
    }
    setBit(*region.initialized, index);
    if (writeThrough) {
      methodWrite(region.method, entryAddress(region, index), zeros.data(), region.entrySize, 1);
    }
  }
}

void System::writeback(int handle, bool initializedOnly) {
  const Region& region = regions_.at(handle);
  if (tracing(0)) {
    trace(0, "writeback", 205,
          region.name + ": writing back initialzedOnly=" + (initializedOnly ? "1" : "0"));
  }
  if (!region.shadow || region.mode == Mode::override_) return;
  if (!initializedOnly) {
    guard(u64{region.entries} * region.entrySize <= region.shadow->size(),
          "shadow smaller than the region");
    methodWrite(region.method, region.address, region.shadow->data(), region.entrySize,
                region.entries);
    return;
  }
  u32 count = 0;
  for (u32 entry = 0; entry < region.entries; entry++) {
    if (!entryInitialized(handle, entry)) continue;
    count++;
    guard((u64{entry} + 1) * region.entrySize <= region.shadow->size(),
          "shadow smaller than the region");
    methodWrite(region.method, entryAddress(region, entry),
                region.shadow->data() + std::size_t{entry} * region.entrySize, region.entrySize, 1);
  }
  if (tracing(9)) {
    trace(9, "writeback", 220, region.name + ": wrote back " + decimal(count) + " entries");
  }
}

bool System::inRange(int handle, u64 address) const {
  const Region& region = regions_.at(handle);
  u32 span = region.stride * region.entries;
  return region.address <= address && address < region.address + span;
}

u32 System::entryIndexFromAddress(int handle, u64 address) const {
  const Region& region = regions_.at(handle);
  guard(region.stride != 0, "entry index with a stride of 0");
  return static_cast<u32>((address - region.address) / region.stride);
}

bool System::entryInitialized(int handle, u32 entry) const {
  const Region& region = regions_.at(handle);
  if (region.mode == Mode::override_) return true;
  guard(region.initialized && entry / 8 < region.initialized->size(), "no bit for the entry");
  return bitAt(*region.initialized, entry);
}

void System::entryInitializedIs(int handle, u32 entry) {
  Region& region = regions_.at(handle);
  if (region.mode == Mode::override_) return;
  guard(region.initialized && entry / 8 < region.initialized->size(), "no bit for the entry");
  setBit(*region.initialized, entry);
}

void System::entryInitializedDel(int handle, u32 entry) {
  Region& region = regions_.at(handle);
  if (region.mode == Mode::override_) return;
  guard(region.initialized && entry / 8 < region.initialized->size(), "no bit for the entry");
  clearBit(*region.initialized, entry);
}

// --- Directory.

namespace {
[[noreturn]] void throwReinstantiation(const std::string& attribute, const std::string& asked,
                                       const std::string& held) {
  throw NameInUse{"Reinstantiating the pointer interface where constructor parameter attribute " +
                  attribute + " has a different value of " + asked + " than the current value of " +
                  held + " not allowed"};
}
}  // namespace

int System::directoryCreate() {
  directories_.emplace_back();
  return static_cast<int>(directories_.size()) - 1;
}

void System::directoryDestroy(int handle) {
  directoryChipMemoryDelAll(handle);
  directories_.at(handle).alive = false;
}

int System::directoryChipMemory(int handle, const std::string& name) const {
  const Directory& directory = directories_.at(handle);
  auto member = directory.members.find(name);
  return member == directory.members.end() ? none : member->second;
}

int System::directoryChipMemoryIs(int handle, const std::string& name, u64 address, u32 entries,
                                  u32 entrySize, u32 stride, int method) {
  int existing = directoryChipMemory(handle, name);
  if (existing != none) {
    const Region& region = regions_.at(existing);
    if (region.address != address) {
      throwReinstantiation("_address", addressText(address), addressText(region.address));
    }
    // Takes effect even when one of the later checks fails.
    entriesIs(existing, entries);
    if (region.entrySize != entrySize) {
      throwReinstantiation("_entrySize", decimal(entrySize), decimal(region.entrySize));
    }
    if (region.stride != stride) {
      throwReinstantiation("_stride", decimal(stride), decimal(region.stride));
    }
    if (region.method != method) {
      throwReinstantiation("_chipHam", method == none ? "" : methods_.at(method).text,
                           region.method == none ? "" : methods_.at(region.method).text);
    }
    return existing;
  }
  int made = regionCreate(name, address, entries, entrySize, stride, method);
  directories_.at(handle).members[name] = made;
  notify(Notification::Kind::directoryMember, handle, 0, name);
  return made;
}

int System::directoryChipMemoryDel(int handle, const std::string& name) {
  int removed = directoryChipMemory(handle, name);
  if (removed == none) return none;
  directories_.at(handle).members.erase(name);
  notify(Notification::Kind::directoryMember, handle, 0, name);
  return removed;
}

void System::directoryChipMemoryDelAll(int handle) {
  while (!directories_.at(handle).members.empty()) {
    directoryChipMemoryDel(handle, std::string(directories_.at(handle).members.begin()->first));
  }
}

}  // namespace Model
