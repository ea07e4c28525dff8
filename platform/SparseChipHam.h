// The access method for regions whose entries are not adjacent on the chip: entry e is at
// the low address word + e * stride. Within an entry its registers are packed.
//
//   auto ham = Platform::sparseChipHamFactory("ports", registers, 0x100);
//   auto ports = chipMemoryFactory("ports", address, 64, 12, 0x100, ham);   // the same stride
//
// The generic access method is wrong for such a chip as soon as an access has more than one entry.
#pragma once

#include <Fru/HamImpl.h>
#include <Hardware/ChipHam.h>
#include <Hardware/GenericChipHam.h>

namespace Platform {

class UMBRA_API SparseChipHam : public Hardware::ChipHam {
 public:
  using Ptr = Zint::Ptr<SparseChipHam>;

  // `stride` is in bytes. One that is no multiple of 4: a range exception. One that is smaller than
  // the entry makes entries share registers.
  SparseChipHam(Zint::Name name, const Zint::Ptr<Fru::HamImpl>& registers, U32 stride);

 protected:
  ~SparseChipHam() override;

 public:
  // In ascending order of the entries, and of the registers in each. Entry sizes that are no
  // multiple of 4: a fatal assertion, before any access, also for no entries. Register addresses
  // wrap in 32 bits. An exception of the register access passes through; the accesses before it
  // have been made.
  void doRead(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
              U32 entries) override;
  void doWrite(const Hardware::ChipAddress& address, U8* buffer, U32 entrySize,
               U32 entries) override;

  const Zint::Ptr<Fru::HamImpl>& hamImpl() const { return entryHam_->hamImpl(); }
  U32 stride() const { return stride_; }

 private:
  const Hardware::GenericChipHam::Ptr entryHam_;  // reaches the registers of one entry
  const U32 stride_;
};

UMBRA_API Zint::ValidPtr<SparseChipHam> sparseChipHamFactory(
    Zint::Name name, const Zint::Ptr<Fru::HamImpl>& registers, U32 stride);

}  // namespace Platform
