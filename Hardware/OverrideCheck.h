// Whether an object's class overrides a virtual operation. Where the cache operations of an access
// method and the counters of a region are not overridden, entries need no virtual calls, and many
// can be processed at once.
//
// The check compares a slot of the object's virtual table with the same slot of the base class.
// Both hold the same address in every build of a client: cmake/shared-addresses.txt says how.
#pragma once

#include <Hardware/ChipMemory.h>
#include <cstring>

#if !defined(__GXX_ABI_VERSION) || !(defined(__i386__) || defined(__x86_64__))
#error "slotFunction() knows the virtual tables of the Itanium C++ ABI on x86 only"
#endif

namespace Hardware {

// The virtual table of the object's class.
template <class Object>
const char* virtualTable(const Object& object) {
  const char* table;
  std::memcpy(&table, static_cast<const void*>(&object), sizeof table);
  return table;
}

// The function that the object's class has in the slot of a virtual operation. In the C++ ABI of
// x86 a pointer to a virtual member holds 1 + the slot's offset in the virtual table.
template <class Object, class Operation>
const void* slotFunction(const Object& object, Operation operation) {
  static_assert(sizeof(Operation) == 2 * sizeof(std::size_t));
  std::size_t offset;
  std::memcpy(&offset, &operation, sizeof offset);
  const void* function;
  std::memcpy(&function, virtualTable(object) + (offset - 1), sizeof function);
  return function;
}

// The virtual table of the region class itself, and the functions of the base classes. Null until
// static initialization has run: until then every class counts as overriding.
struct BaseFunctions {
  const char* regionTable;
  const void* doCompare;
  const void* doWriteToCache;
  const void* doReadFromCache;
  const void* readCacheHitsInc;
  const void* readCacheHitsIs;
  const void* writeCacheHitsInc;
  const void* writeCacheHitsIs;
};
extern const BaseFunctions baseFunctions;

inline bool overridesCompare(const ChipHam& ham) {
  return slotFunction(ham, &ChipHam::doCompare) != baseFunctions.doCompare;
}
inline bool overridesWriteToCache(const ChipHam& ham) {
  return slotFunction(ham, &ChipHam::doWriteToCache) != baseFunctions.doWriteToCache;
}
inline bool overridesReadFromCache(const ChipHam& ham) {
  return slotFunction(ham, &ChipHam::doReadFromCache) != baseFunctions.doReadFromCache;
}
// A region is seldom of a derived class.
inline bool overridesReadCacheHits(const ChipMemory& cm) {
  if (virtualTable(cm) == baseFunctions.regionTable) [[likely]]
    return false;
  return slotFunction(cm, &ChipMemory::readCacheHitsInc) != baseFunctions.readCacheHitsInc ||
         slotFunction(cm, &ChipMemory::readCacheHitsIs) != baseFunctions.readCacheHitsIs;
}
inline bool overridesWriteCacheHits(const ChipMemory& cm) {
  if (virtualTable(cm) == baseFunctions.regionTable) [[likely]]
    return false;
  return slotFunction(cm, &ChipMemory::writeCacheHitsInc) != baseFunctions.writeCacheHitsInc ||
         slotFunction(cm, &ChipMemory::writeCacheHitsIs) != baseFunctions.writeCacheHitsIs;
}

}  // namespace Hardware
