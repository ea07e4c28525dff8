// What the data path and the audit use of a region's store besides the region's public attributes.
#pragma once

#include <Hardware/ChipMemory.h>
#include <Hardware/Entries.h>

namespace Hardware {

struct StoreAccess {
  static const auto& view(const ChipMemory& cm) { return cm.storeView_; }
  static bool isDisjoint(const ChipMemory& cm) { return cm.storeIsDisjoint_; }
  static U32 storedEntries(const ChipMemory& cm) { return cm.storedEntries(); }
  // The byte of volatileEntries() that holds the bit of `entry`.
  static U32 volatileByte(const ChipMemory& cm, U32 entry) {
    const Hal::BufBase* bitmap = cm.volatileEntries_.ptr();
    return bitmap == nullptr || entry >> 3 >= bitmap->size() ? 0 : bitmap->data()[entry >> 3];
  }

  // Ask for the memory of what a comparison uses, ahead of it.
  static void prefetchRegion(const ChipMemory& cm) {
    __builtin_prefetch(&cm);
    __builtin_prefetch(&cm.auditEnabled_);
    __builtin_prefetch(&cm.hardware_);
  }
  static void prefetchBuffers(const ChipMemory& cm) {
    __builtin_prefetch(cm.shadow_.ptr());
    __builtin_prefetch(cm.initialized_.ptr());
    __builtin_prefetch(cm.dirty_.ptr());
    __builtin_prefetch(cm.hardware_.ptr());
  }

  // Count without a virtual call. REQUIRES: the counter is not overridden, or `n` is 0. The caller
  // notifies of it where it is observed.
  static void countReads(const ChipMemory& cm, U32 n) { cm.readCacheHits_ += n; }
  static void countSkippedWrites(ChipMemory& cm, U32 n) { cm.writeCacheHits_ += n; }
};

// The number of entries for which a bitmap has a bit.
inline U64 bitsOf(const Hal::BufBase& bitmap) { return U64{bitmap.size()} * 8; }

// Whether the buffer and the block have a byte in common.
inline bool overlap(const Hal::BufBase& buffer, const U8* block, U32 bytes) {
  const auto at = [](const U8* p) { return reinterpret_cast<std::uintptr_t>(p); };
  return at(buffer.data()) < at(block) + bytes && at(block) < at(buffer.data()) + buffer.size();
}

// The number of entries of an access that consists of whole entries, all of them in the store; 0
// for any other access.
inline U32 wholeEntries(const ChipMemory& cm, U32 entry, U32 size) {
  const U32 entrySize = cm.entrySize();
  const U32 held = StoreAccess::view(cm).entries;
  if (entrySize == 0 || size % entrySize != 0 || entry > held) return 0;
  const U32 count = size / entrySize;
  return count <= held - entry ? count : 0;
}

}  // namespace Hardware
