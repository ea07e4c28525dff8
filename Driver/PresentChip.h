// A chip whose register access knows whether it is there: the patrol asks that, and no sentinel
// of the chip's own is needed.
//
//   auto ham = Platform::registerHamFactory("asic", bus, {.flushesWrites = true});
//   ham->sentinelIs(0, 0x10de1234);
//   shadow->chipIs(Driver::presentChipFactory("asic", ham));
#pragma once

#include <Driver/Chip.h>
#include <platform/bus/Presence.h>

namespace Driver {

class UMBRA_API PresentChip : public Chip {
 public:
  using Ptr = Zint::Ptr<PresentChip>;

  // An access method that is null, or no Platform::Presence: a range exception.
  PresentChip(Zint::Name name, const Hardware::ChipHam::Ptr& ham);

 protected:
  ~PresentChip() override;

 public:
  // Asks the register access, and then for the sentinel, if the chip was given one.
  bool isPresent() override;

 private:
  Platform::Presence* const presence_;  // of the access method, which the chip holds
};

UMBRA_API Zint::Ptr<PresentChip> presentChipFactory(Zint::Name name,
                                                    const Hardware::ChipHam::Ptr& ham);

}  // namespace Driver
