// Regions and access methods of which exactly one virtual operation is overridden. The override
// reports its call to `onSlot` and then does what the base does.
#pragma once

#include <Hardware/ChipMemory.h>

#include <functional>
#include <string>
#include <vector>

namespace Support {

using Hardware::ChipMemory;

// Is given the operation and those of its arguments that are numbers: "writeCacheHitsIs 3".
inline std::function<void(const std::string&)> onSlot;

inline std::string numberText(const Hardware::ChipAddress& address) {
  return " " + std::to_string(address.value());
}
template <class T>
std::string numberText(const T& value) {
  if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) {
    return " " + std::to_string(value);
  } else {
    return "";
  }
}

template <class... Arguments>
void reportSlot(const char* operation, const Arguments&... arguments) {
  if (onSlot) onSlot((std::string(operation) + ... + numberText(arguments)));
}

using RegionFactory = Hardware::ChipMemory::Ptr (*)(const char* name, U64 address, U32 entries,
                                                    U32 entrySize,
                                                    const Hardware::ChipHam::Ptr& ham);
using HamFactory = Hardware::ChipHam::Ptr (*)();

template <class Region>
Hardware::ChipMemory::Ptr makeRegion(const char* name, U64 address, U32 entries, U32 entrySize,
                                     const Hardware::ChipHam::Ptr& ham) {
  return Zint::makePtr<Region>(name, Hardware::ChipAddress(address), entries, entrySize,
                               entrySize == 0 ? 1u : entrySize, ham);
}

// The chip does not matter here: reads leave the buffer as it is.
class IdleHam : public Hardware::ChipHam {
 public:
  IdleHam() : ChipHam("ham") {}
  void doRead(const Hardware::ChipAddress&, U8*, U32, U32) override {}
  void doWrite(const Hardware::ChipAddress&, U8*, U32, U32) override {}
};

template <class Ham>
Hardware::ChipHam::Ptr makeHam() {
  return Zint::makePtr<Ham>();
}

struct RegionSlot {
  const char* operation;
  RegionFactory make;
};
struct HamSlot {
  const char* operation;
  HamFactory make;
};

#define FAKES_OVERRIDE(Class, Base, operation, result, qualifier, parameters, arguments, ...) \
  class Class : public Base {                                                                 \
   public:                                                                                    \
    using Base::Base;                                                                         \
    result operation parameters qualifier override {                                          \
      reportSlot(#operation __VA_OPT__(, ) __VA_ARGS__);                                      \
      return Base::operation arguments;                                                       \
    }                                                                                         \
  };

#define FAKES_REGION_SLOT(operation, qualifier, Parameter)                                      \
  FAKES_OVERRIDE(Region_##operation, ChipMemory, operation, void, qualifier, (Parameter value), \
                 (value), value)

FAKES_OVERRIDE(Region_handleShadowStoreNeeded, ChipMemory, handleShadowStoreNeeded, void, , (), ())
FAKES_REGION_SLOT(entriesIs, , U32)
FAKES_REGION_SLOT(indirectCmdRegAddrIs, , U32)
FAKES_REGION_SLOT(shadowEnabledIs, , bool)
FAKES_REGION_SLOT(auditEnabledIs, , bool)
FAKES_REGION_SLOT(modeIs, , ChipMemoryMode)
FAKES_REGION_SLOT(shadowStoreNeededIs, , bool)
FAKES_REGION_SLOT(readFromCacheIs, , bool)
FAKES_REGION_SLOT(skipWriteIfMatchesCacheIs, , bool)
FAKES_REGION_SLOT(readCacheHitsInc, const, const U64&)
FAKES_REGION_SLOT(readCacheHitsIs, const, const U64&)
FAKES_REGION_SLOT(writeCacheHitsInc, , const U64&)
FAKES_REGION_SLOT(writeCacheHitsIs, , const U64&)
FAKES_REGION_SLOT(registersFixedInc, , U32)
FAKES_REGION_SLOT(registersFixedIs, , U32)
FAKES_REGION_SLOT(lastFixTimeIs, , Zint::Seconds)
FAKES_REGION_SLOT(hardwareIs, , const Zint::Ptr<Hal::Buf>&)
FAKES_REGION_SLOT(shadowIs, , const Zint::Ptr<Hal::BufBase>&)
FAKES_REGION_SLOT(initializedIs, , const Zint::Ptr<Hal::BufBase>&)
FAKES_REGION_SLOT(dirtyIs, , const Zint::Ptr<Hal::BufBase>&)
FAKES_REGION_SLOT(allowsLogicalViewsIs, , bool)

FAKES_OVERRIDE(Ham_doRead, IdleHam, doRead, void, ,
               (const Hardware::ChipAddress& address, U8* buffer, U32 entrySize, U32 entries),
               (address, buffer, entrySize, entries), address, entrySize, entries)
FAKES_OVERRIDE(Ham_doWrite, IdleHam, doWrite, void, ,
               (const Hardware::ChipAddress& address, U8* buffer, U32 entrySize, U32 entries),
               (address, buffer, entrySize, entries), address, entrySize, entries)
FAKES_OVERRIDE(Ham_doCompare, IdleHam, doCompare, bool, const, (U8 * a, U8* b, U32 bytes),
               (a, b, bytes), bytes)
FAKES_OVERRIDE(Ham_doReadToCache, IdleHam, doReadToCache, bool, const,
               (U8 * to, U8* from, U32 bytes), (to, from, bytes), bytes)
FAKES_OVERRIDE(Ham_doWriteToCache, IdleHam, doWriteToCache, bool, , (U8 * to, U8* from, U32 bytes),
               (to, from, bytes), bytes)
FAKES_OVERRIDE(Ham_doReadFromCache, IdleHam, doReadFromCache, bool, const,
               (U8 * to, U8* from, U32 bytes), (to, from, bytes), bytes)

#define FAKES_ROW(operation) \
  { #operation, makeRegion < Region_##operation> }

// "" overrides nothing.
inline const std::vector<RegionSlot>& regionSlots() {
  static const std::vector<RegionSlot> slots = {{"", makeRegion<Hardware::ChipMemory>},
                                                FAKES_ROW(handleShadowStoreNeeded),
                                                FAKES_ROW(entriesIs),
                                                FAKES_ROW(indirectCmdRegAddrIs),
                                                FAKES_ROW(shadowEnabledIs),
                                                FAKES_ROW(auditEnabledIs),
                                                FAKES_ROW(modeIs),
                                                FAKES_ROW(shadowStoreNeededIs),
                                                FAKES_ROW(readFromCacheIs),
                                                FAKES_ROW(skipWriteIfMatchesCacheIs),
                                                FAKES_ROW(readCacheHitsInc),
                                                FAKES_ROW(readCacheHitsIs),
                                                FAKES_ROW(writeCacheHitsInc),
                                                FAKES_ROW(writeCacheHitsIs),
                                                FAKES_ROW(registersFixedInc),
                                                FAKES_ROW(registersFixedIs),
                                                FAKES_ROW(lastFixTimeIs),
                                                FAKES_ROW(hardwareIs),
                                                FAKES_ROW(shadowIs),
                                                FAKES_ROW(initializedIs),
                                                FAKES_ROW(dirtyIs),
                                                FAKES_ROW(allowsLogicalViewsIs)};
  return slots;
}

#undef FAKES_ROW
#define FAKES_ROW(operation) \
  { #operation, makeHam < Ham_##operation> }

inline const std::vector<HamSlot>& hamSlots() {
  static const std::vector<HamSlot> slots = {{"", makeHam<IdleHam>},    FAKES_ROW(doRead),
                                             FAKES_ROW(doWrite),        FAKES_ROW(doCompare),
                                             FAKES_ROW(doReadToCache),  FAKES_ROW(doWriteToCache),
                                             FAKES_ROW(doReadFromCache)};
  return slots;
}

#undef FAKES_ROW
#undef FAKES_REGION_SLOT
#undef FAKES_OVERRIDE

}  // namespace Support
