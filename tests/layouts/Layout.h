// Regions laid out in an address space, held beside a naive reference of it: an ordered map of the
// regions' start addresses, and one vector of bytes for each region.
#pragma once

#include <Hardware/ChipReader.h>
#include <Hardware/HardwareShadow.h>

#include <map>
#include <vector>

#include "support/ByteChip.h"
#include "support/ManualLoop.h"
#include "support/TraceCapture.h"

namespace Layouts {

struct Place {
  U64 address;
  U32 entries;
  U32 entrySize = 4;
  U32 stride = 0;  // 0 stands for the entry size
};

using Chip = Support::ByteChip;

class Layout {
 public:
  explicit Layout(std::vector<Place> places);
  ~Layout();
  Layout(const Layout&) = delete;
  Layout& operator=(const Layout&) = delete;

  // Looks up addresses in, at the ends of and beside each region, with the last region found kept
  // and with it cleared.
  void checkLookUps();
  // Writes each region by address, entry by entry and as a whole, and reads it back both ways.
  void checkWritesAndReads();
  // Damages some bytes of the chip in every `step`-th region and runs two passes: the first repairs
  // exactly these, the second nothing. REQUIRES: the regions do not overlap.
  void checkAudit(U32 step);

 private:
  struct Region {
    Place place;
    Hardware::ChipMemory::Ptr memory;
    std::vector<U8> expected;  // of the cache, and of the chip once it has been written
    U64 byteAddress(U32 entry, U32 byte) const {
      return place.address + U64{entry} * place.stride + byte;
    }
  };

  // The region that contains the address by the rule: the last one found, or else the one that
  // starts at or before it, in the same 4 GiB.
  int expectedRegion(U64 address);
  void checkLookUp(U64 address);
  void write(Region& region, U32 entry, U32 entries);
  void checkRead(const Region& region, U32 entry, U32 entries);
  void runPass();
  U32 registersFixed() const;

  Support::TraceCapture trace_{0};
  Support::ManualLoop loop_;
  Chip chip_;
  std::vector<Region> regions_;
  std::map<U64, int> byAddress_;
  int last_ = -1;
  U8 nextByte_ = 0;
  Hardware::HardwareShadow::Ptr shadow_;
  Hardware::ChipReader::Ptr reader_;
};

}  // namespace Layouts
