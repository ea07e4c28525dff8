// What a register access knows of its chip beside the registers. Driver::presentChipFactory binds
// it to the patrol.
#pragma once

#include <Zint/Api.h>
#include <Zint/Types.h>

namespace Platform {

class UMBRA_API Presence {
 public:
  // Asks the chip: whether it answers, and is the one it was. After an absence this makes the way
  // to the chip anew first. Does not throw.
  virtual bool isPresent() = 0;
  // What reading one register took, in seconds: the mean of the last accesses; 0 before the first.
  virtual Zint::Seconds costPerAccess() const = 0;

 protected:
  ~Presence() = default;
};

}  // namespace Platform
