// Regions, registers and fields as constants: what `umbra map header` makes of a register map, and
// what a driver may write by hand. Aggregates, so that they can be constexpr.
//
//   constexpr Driver::TableField macFields[] = {{"valid", 0, 1}, {"port", 1, 4}};
//   constexpr Driver::TableRegister macs[] = {{.name = "mac[0]", .fields = macFields}, ...};
//   constexpr Driver::TableRegion regions[] = {
//       {.name = "mac", .address = 0x1000, .entrySize = 4, .stride = 4, .registers = macs}};
//
//   for (const auto& region : regions) {
//     const auto table = Driver::chipMemoryOf(region, ham);
//     shadow->chipMemoryIs(table);
//     shadow->policyIs(Driver::policyOf(table, region));
//   }
//   shadow->registerNamesIs(Driver::registerNamesOf(regions));
#pragma once

#include <Driver/Policy.h>
#include <Driver/RegisterNames.h>
#include <span>

namespace Driver {

struct TableField {
  const char* name = "";
  U32 low = 0;   // the lowest bit
  U32 bits = 1;  // 1 to 64
};

// One entry.
struct TableRegister {
  const char* name = "";
  Rule rule = Rule::repaired;
  U64 mask = 0;  // bits that are not compared
  Rewrite rewrite = Rewrite::kept;
  bool isOnce = false;
  U64 resetValue = 0;
  U64 resetMask = 0;  // the bits of it that are known
  std::span<const TableField> fields = {};
};

struct TableRegion {
  const char* name = "";
  U64 address = 0;
  U32 entrySize = 4;                              // bytes
  U32 stride = 4;                                 // bytes
  std::span<const TableRegister> registers = {};  // one for each entry
  // Of a table whose entries are all alike: their number. `registers` holds one then, and entry 17
  // of "mac" is called "mac[17]". 0: as many as there are registers.
  U32 entries = 0;
};

// The region as an object, `base` being added to its address.
UMBRA_API Zint::Ptr<Hardware::ChipMemory> chipMemoryOf(const TableRegion& region,
                                                       const Zint::Ptr<Hardware::ChipHam>& ham,
                                                       U64 base = 0);
// Its policy: rules, masks, and the reset values whose bits are all known. Null or other sizes: a
// range exception.
UMBRA_API Zint::Ptr<Policy> policyOf(const Hardware::ChipMemory::Ptr& chipMemory,
                                     const TableRegion& region);
// The names of all regions, found by the regions' names. The table is not copied: it must outlive
// the names. Two regions of one name: a range exception.
UMBRA_API Zint::Ptr<RegisterNames> registerNamesOf(std::span<const TableRegion> regions);

// The value of a field in an entry's bytes; those beyond them are 0.
UMBRA_API U64 fieldOf(std::span<const U8> bytes, U32 low, U32 bits);

}  // namespace Driver
