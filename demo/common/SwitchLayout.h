// The switch chip of the demonstration: its tables and where their registers are. The one thing
// that the driver and the chip process must agree on.
#pragma once

#include <Hardware/ChipAddress.h>
#include <Zint/Types.h>

#include <array>

namespace Demo {

struct TableLayout {
  enum BringUp { direct, buffered, absent };

  const char* name;
  Hardware::ChipAddress address;  // the low word is the byte address of entry 0's first register
  U32 entries;
  U32 entrySize;  // bytes
  U32 stride;     // bytes
  BringUp bringUp;
  bool readFromCache;
  bool skipWriteIfMatchesCache;

  constexpr bool isSparse() const { return stride != entrySize; }
  // An absent table belongs to an option that this board lacks: it has no registers, and the
  // software runs in override mode.
  constexpr bool isOnChip() const { return bringUp != absent; }
  constexpr U32 registersPerEntry() const { return entrySize / 4; }
  constexpr U32 registers() const { return isOnChip() ? entries * registersPerEntry() : 0; }
  // Behind the table's last register; the byte addresses begin at the low word of `address`.
  constexpr U32 end() const { return address.chipMemoryOffset() + entries * stride; }
  // Of register 0 to registers() - 1, without the gaps.
  constexpr U32 registerAddress(U32 index) const {
    return address.chipMemoryOffset() + index / registersPerEntry() * stride +
           index % registersPerEntry() * 4;
  }
};

constexpr std::array<TableLayout, 6> switchTables{{
    {"mac", {1, 0x00000}, 65536, 8, 8, TableLayout::direct, true, false},
    {"vlan", {1, 0x80000}, 1024, 8, 8, TableLayout::direct, true, true},
    {"port", {1, 0x90000}, 64, 12, 256, TableLayout::direct, true, false},
    {"acl", {2, 0xa0000}, 512, 16, 16, TableLayout::buffered, true, true},
    {"qos", {2, 0xb0000}, 256, 4, 4, TableLayout::direct, false, true},
    {"stack", {3, 0x10000000}, 128, 16, 16, TableLayout::absent, true, false},
}};

// Bytes of the register file; its first register is at address 0.
constexpr U32 registerFileSize = 0xc0000;

// A register of the chip itself, outside of the tables: it holds this value also after a reset.
constexpr Hardware::ChipAddress identityAddress{2, 0xbfffc};
constexpr U32 identity = 0x0517c401;

// Whether the chip holds the registers at this address: tables of absent options have none.
constexpr bool isOnChip(const Hardware::ChipAddress& address) {
  return address.chipMemoryId() == 1 || address.chipMemoryId() == 2;
}

}  // namespace Demo
