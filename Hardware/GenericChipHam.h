// The ready-made access method for arrays of 32-bit registers. Entries are packed without a gap,
// whatever the region's stride.
#pragma once

#include <Fru/HamImpl.h>
#include <Hardware/ChipHam.h>

namespace Hardware {

class UMBRA_API GenericChipHam : public ChipHam {
 public:
  using Ptr = Zint::Ptr<GenericChipHam>;
  struct Id : ChipHam::Id {
    enum : Zint::AttributeId { hamImpl = lastMember + 1 };
  };

  GenericChipHam(Zint::Name name, const Zint::Ptr<Fru::HamImpl>& hamImpl);

  const Zint::Type* fwkType() const override;

 protected:
  ~GenericChipHam() override;

 public:
  // One register access per 32-bit word, in ascending order, at the low word of `address` (the high
  // word is not passed on). Entry sizes that are no multiple of 4: a fatal assertion, before any
  // access. An exception of the register access passes through; the accesses before it have been
  // made.
  void doRead(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) override;
  void doWrite(const ChipAddress& address, U8* buffer, U32 entrySize, U32 entries) override;

  const Zint::Ptr<Fru::HamImpl>& hamImpl() const { return hamImpl_; }

 private:
  const Zint::Ptr<Fru::HamImpl> hamImpl_;
};

UMBRA_API Zint::Ptr<GenericChipHam> genericChipHamFactory(Zint::Name name,
                                                          const Zint::Ptr<Fru::HamImpl>& hamImpl);

// The name under which reflection shows it.
constexpr const char* zintTypeName(const GenericChipHam*) { return "Hardware::GenericChipHam"; }

}  // namespace Hardware
