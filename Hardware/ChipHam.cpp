#include <Hardware/ChipHam.h>
#include <Hardware/PlainHam.h>
#include <Hardware/Umbra.h>
#include <cstring>

namespace Hardware {

namespace {

PlainFunctions plainFunctionsRead() {
  const ChipHam::Ptr ham = Zint::makePtr<ChipHam>("plain");
  const ChipMemory::Ptr region = chipMemoryFactory("plain", ChipAddress(), 0, 0, 0, nullptr);
  return {slotFunction(*ham, &ChipHam::doCompare),
          slotFunction(*ham, &ChipHam::doWriteToCache),
          slotFunction(*ham, &ChipHam::doReadFromCache),
          slotFunction(*region, &ChipMemory::readCacheHitsInc),
          slotFunction(*region, &ChipMemory::readCacheHitsIs),
          slotFunction(*region, &ChipMemory::writeCacheHitsInc)};
}

}  // namespace

// NOLINTNEXTLINE(cert-err58-cpp): without memory for two small objects, a process cannot start
const PlainFunctions plainFunctions = plainFunctionsRead();

ChipHam::~ChipHam() = default;
ChipHam::NotifieeConst::~NotifieeConst() = default;

const Zint::Type* ChipHam::fwkType() const { return &chipHamType; }

void ChipHam::doRead(const ChipAddress&, U8*, U32, U32) { UMBRA_ASSERT(34, 0); }

void ChipHam::doWrite(const ChipAddress&, U8*, U32, U32) { UMBRA_ASSERT(40, 0); }

bool ChipHam::doCompare(U8* a, U8* b, U32 bytes) const { return std::memcmp(a, b, bytes) == 0; }

bool ChipHam::doReadToCache(U8* destination, U8* source, U32 bytes) const {
  std::memcpy(destination, source, bytes);
  return true;
}

bool ChipHam::doWriteToCache(U8* destination, U8* source, U32 bytes) {
  std::memcpy(destination, source, bytes);
  return true;
}

bool ChipHam::doReadFromCache(U8* destination, U8* source, U32 bytes) const {
  std::memcpy(destination, source, bytes);
  return true;
}

bool ChipHam::bitFromBitStream(U8* stream, U32 bit) const {
  return ((stream[bit / 8] >> (bit % 8)) & 1) != 0;
}

void ChipHam::bitToBitStream(U8* stream, U32 bit, bool value) const {
  const U32 mask = 1u << (bit % 8);
  const U32 kept = stream[bit / 8] & ~mask;
  stream[bit / 8] = static_cast<U8>(kept | (value ? mask : 0));
}

U8 ChipHam::byteFromBitStream(U8* stream, U32 bit) const {
  const U32 shift = bit % 8;
  const U8* byte = stream + bit / 8;
  if (shift == 0) return byte[0];
  return static_cast<U8>(byte[0] >> shift | byte[1] << (8 - shift));
}

void ChipHam::byteToBitStream(U8* stream, U32 bit, U8 value) const {
  const U32 shift = bit % 8;
  U8* byte = stream + bit / 8;
  if (shift == 0) {
    byte[0] = value;
    return;
  }
  const U32 low = (1u << shift) - 1;
  byte[0] = static_cast<U8>((byte[0] & low) | static_cast<U32>(value << shift));
  byte[1] = static_cast<U8>((byte[1] & ~low) | static_cast<U32>(value >> (8 - shift)));
}

void ChipHam::copyBits(U8* destination, U32 destinationBit, U8* source, U32 sourceBit,
                       U32 bits) const {
  const U32 inBytes = bits / 8 * 8;
  for (U32 k = 0; k < inBytes; k += 8) {
    byteToBitStream(destination, destinationBit + k, byteFromBitStream(source, sourceBit + k));
  }
  for (U32 k = inBytes; k < bits; ++k) {
    bitToBitStream(destination, destinationBit + k, bitFromBitStream(source, sourceBit + k));
  }
}

}  // namespace Hardware
