#include <platform/SparseChipHam.h>

#include <Zint/Strep.h>

namespace Platform {

SparseChipHam::SparseChipHam(Zint::Name name, const Zint::Ptr<Fru::HamImpl>& registers, U32 stride)
    : ChipHam(name),
      entryHam_(Hardware::genericChipHamFactory(std::move(name), registers)),
      stride_(stride) {
  if (stride_ % sizeof(U32) != 0) {
    Zint::throwRangeException(
        Zint::format("%s: the stride %u is no multiple of 4", this->name().c_str(), stride_));
  }
}

SparseChipHam::~SparseChipHam() = default;

// The entry's access method is held over the loop: an access may drop the last other reference, to
// this object as well.
void SparseChipHam::doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
                           U32 entries) {
  ZINT_ASSERT("platform/SparseChipHam", ( entrySize % 4 ) == 0);
  const Hardware::GenericChipHam::Ptr entryHam = entryHam_;
  const U32 stride = stride_;
  U32 offset = address.chipMemoryOffset();
  for (U32 e = 0; e < entries; ++e, offset += stride, buffer += entrySize) {
    entryHam->doRead(Hardware::ChipAddress(address.chipMemoryId(), offset), buffer, entrySize, 1);
  }
}

void SparseChipHam::doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
                            U32 entries) {
  ZINT_ASSERT("platform/SparseChipHam", ( entrySize % 4 ) == 0);
  const Hardware::GenericChipHam::Ptr entryHam = entryHam_;
  const U32 stride = stride_;
  U32 offset = address.chipMemoryOffset();
  for (U32 e = 0; e < entries; ++e, offset += stride, buffer += entrySize) {
    entryHam->doWrite(Hardware::ChipAddress(address.chipMemoryId(), offset), buffer, entrySize, 1);
  }
}

Zint::ValidPtr<SparseChipHam> sparseChipHamFactory(Zint::Name name,
                                                   const Zint::Ptr<Fru::HamImpl>& registers,
                                                   U32 stride) {
  return Zint::makePtr<SparseChipHam>(std::move(name), registers, stride);
}

}  // namespace Platform
