#include "simulation/Access.h"

#include <cstring>

namespace Simulation {
namespace {

U32 memoryOffset(const Hardware::ChipAddress& address) {
  return address.chipMemoryOffset() - firstOffset;
}

}  // namespace

void ChipAccess::doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
                        U32 entries) {
  U32 offset = memoryOffset(address);
  for (U32 i = 0; i < entries; ++i, offset += stride_, buffer += entrySize) {
    chip_.read(offset, buffer, entrySize);
    interruption_.countEntry();
  }
}

void ChipAccess::doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
                         U32 entries) {
  U32 offset = memoryOffset(address);
  for (U32 i = 0; i < entries; ++i, offset += stride_, buffer += entrySize) {
    chip_.write(offset, buffer, entrySize);
  }
}

bool StatusAccess::doCompare(U8* a, U8* b, U32 bytes) const {
  const U32 last = bytes - 1;
  return std::memcmp(a, b, last) == 0 && ((a[last] ^ b[last]) & ~ignored_ & 0xff) == 0;
}

void SabotagedAccess::doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
                             U32 entries) {
  ChipAccess::doRead(address, buffer, entrySize, entries);
  if (sabotage_.inTurn && sabotage_.strikes(Sabotage::readsWrong)) {
    buffer[0] = static_cast<U8>(buffer[0] ^ 1);
  }
}

void SabotagedAccess::doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
                              U32 entries) {
  if (sabotage_.inTurn && sabotage_.strikes(Sabotage::dropsRepair)) return;
  const bool elsewhere = sabotage_.strikes(Sabotage::writesElsewhere);
  ChipAccess::doWrite(elsewhere ? address.plus(stride_) : address, buffer, entrySize, entries);
}

bool SabotagedAccess::doCompare(U8* a, U8* b, U32 bytes) const {
  return sabotage_.strikes(Sabotage::blind) || ChipAccess::doCompare(a, b, bytes);
}

bool SabotagedAccess::doReadFromCache(U8* destination, U8* source, U32 bytes) const {
  if (!ChipAccess::doReadFromCache(destination, source, bytes)) return false;
  if (sabotage_.strikes(Sabotage::servesWrong)) destination[0] = static_cast<U8>(~destination[0]);
  return true;
}

void ChipRegisters::read(U32 address, U32* value) {
  U8 bytes[4] = {};
  chip_.read(address - firstOffset, bytes, 4);
  std::memcpy(value, bytes, 4);
}

void ChipRegisters::write(U32 address, U32 value) {
  U8 bytes[4];
  std::memcpy(bytes, &value, 4);
  chip_.write(address - firstOffset, bytes, 4);
}

}  // namespace Simulation
