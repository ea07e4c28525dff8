// Whether an access method keeps the base behaviour of an operation: a plain comparison or copy of
// bytes, which may then be done for many entries at once. An access method that overrides the
// operation, in whatever derived class, is asked entry by entry. The same for a region's counting
// of hits, which may then be done without a care for what it does besides.
//
// Found out by comparing the object's virtual table with the base's, slot by slot: in the C++ ABI
// of x86 a pointer to a virtual member holds 1 + the slot's offset in the table.
#pragma once

#include <Hardware/ChipMemory.h>
#include <cstring>

namespace Hardware {

// The function that the object's class has in the slot of a virtual operation.
template <class Object, class Operation>
const void* slotFunction(const Object& object, Operation operation) {
  static_assert(sizeof(Operation) == 2 * sizeof(std::size_t));
  std::size_t offset;
  std::memcpy(&offset, &operation, sizeof offset);
  const char* table;
  std::memcpy(&table, static_cast<const void*>(&object), sizeof table);
  const void* function;
  std::memcpy(&function, table + (offset - 1), sizeof function);
  return function;
}

// The base's functions; null until the library is loaded, when nothing counts as plain.
struct PlainFunctions {
  const void* doCompare;
  const void* doWriteToCache;
  const void* doReadFromCache;
  const void* readCacheHitsInc;
  const void* readCacheHitsIs;
  const void* writeCacheHitsInc;
};
extern const PlainFunctions plainFunctions;

inline bool comparesPlainly(const ChipHam& ham) {
  return slotFunction(ham, &ChipHam::doCompare) == plainFunctions.doCompare;
}
inline bool writesToCachePlainly(const ChipHam& ham) {
  return slotFunction(ham, &ChipHam::doWriteToCache) == plainFunctions.doWriteToCache;
}
inline bool readsFromCachePlainly(const ChipHam& ham) {
  return slotFunction(ham, &ChipHam::doReadFromCache) == plainFunctions.doReadFromCache;
}
inline bool countsReadsPlainly(const ChipMemory& region) {
  return slotFunction(region, &ChipMemory::readCacheHitsInc) == plainFunctions.readCacheHitsInc &&
         slotFunction(region, &ChipMemory::readCacheHitsIs) == plainFunctions.readCacheHitsIs;
}

inline bool countsWritesPlainly(const ChipMemory& region) {
  return slotFunction(region, &ChipMemory::writeCacheHitsInc) == plainFunctions.writeCacheHitsInc;
}

// Whether two blocks have a byte in common.
inline bool overlap(const U8* a, U32 bytesOfA, const U8* b, U32 bytesOfB) {
  const auto at = [](const U8* p) { return reinterpret_cast<std::uintptr_t>(p); };
  return at(a) < at(b) + bytesOfB && at(b) < at(a) + bytesOfA;
}

// Whether an entry lies inside a bitmap.
inline bool bitFits(const Hal::BufBase& bitmap, U32 entry) { return entry / 8 < bitmap.size(); }

// Whether the region has that entry, and its shadow and its initialized bitmap hold it.
// REQUIRES: the shadow and the bitmap.
[[gnu::always_inline]] inline bool holdsEntry(const ChipMemory& cm, U32 entry) {
  U32 end;  // in bytes; 0 for entries of none, which no buffer holds. A 32-bit compiler would take
            // a sum of 64 bits through memory.
  return entry < cm.entries() && !__builtin_mul_overflow(entry + 1, cm.entrySize(), &end) &&
         end - 1 < cm.shadow()->size() && bitFits(*cm.initialized(), entry);
}

// The number of entries of an access to whole entries that the region holds; 0 for any other.
// REQUIRES: the shadow and the bitmap.
inline U32 wholeEntries(const ChipMemory& cm, U32 entry, U32 size) {
  const U32 entrySize = cm.entrySize();
  if (size == 0 || entrySize == 0 || size % entrySize != 0) return 0;
  const U32 count = size / entrySize;
  const U32 last = entry + (count - 1);
  return last >= entry && holdsEntry(cm, last) ? count : 0;
}

}  // namespace Hardware
