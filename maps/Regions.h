// The regions of a plan: which registers become entries of one region.
//
// Only decided registers are in regions, so no address is ever accessed that is not a decided
// register. Within a block, in ascending order of addresses:
// - The elements of an array are a region of their own, named after the array, whose stride is the
//   array's: also where it is wider than an element, as long as no other register, decided or not,
//   lies in the gaps. An undecided element, or another register in a gap, divides the array.
// - Other registers of one width that follow each other without a gap are one region, named after
//   the first: "UART0.CTRL", or "UART0.CTRL..BAUD" for more than one.
// An entry is as wide as its register: 1, 2, 4 or 8 bytes. Regions of 1, 2 or 8 bytes, and those
// with gaps, need an access method that can do it.
#pragma once

#include <maps/Plan.h>

namespace Maps {

struct Region {
  std::string name;
  U64 address = 0;
  U32 entries = 0;
  U32 entrySize = 4;           // bytes
  U32 stride = 4;              // bytes
  std::vector<U32> registers;  // of each entry: its index in Map::registers
};

// Whether all entries are elements 0, 1, ... of one array with the same policy: "mac[0]" and so on.
UMBRA_API bool isOfOneKind(const Plan& plan, const Region& region);

// In ascending order of addresses.
UMBRA_API std::vector<Region> regionsOf(const Plan& plan);

}  // namespace Maps
