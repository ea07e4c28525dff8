#include <Hardware/ChipHam.h>

#include <Hardware/Entries.h>
#include <Hardware/Umbra.h>

namespace Hardware {

ChipHam::~ChipHam() = default;
ChipHam::NotifieeConst::~NotifieeConst() = default;

const Zint::Type* ChipHam::fwkType() const { return &chipHamType; }

void ChipHam::doRead(const ChipAddress&, U8*, U32, U32) { UMBRA_ASSERT(34, 0); }

void ChipHam::doWrite(const ChipAddress&, U8*, U32, U32) { UMBRA_ASSERT(40, 0); }

bool ChipHam::doCompare(U8* a, U8* b, U32 bytes) const {
  return bytes == 0 || std::memcmp(a, b, bytes) == 0;
}

bool ChipHam::doReadToCache(U8* destination, U8* source, U32 bytes) const {
  copyBytes(destination, source, bytes);
  return true;
}

bool ChipHam::doWriteToCache(U8* destination, U8* source, U32 bytes) {
  copyBytes(destination, source, bytes);
  return true;
}

bool ChipHam::doReadFromCache(U8* destination, U8* source, U32 bytes) const {
  copyBytes(destination, source, bytes);
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
