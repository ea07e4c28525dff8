// Two chips that are given the same: each answer is compared.
#pragma once

#include "Switch.h"

namespace Rtl {

class Lockstep : public Switch {
 public:
  // Both outlive it.
  Lockstep(Switch& first, Switch& second) : first_(first), second_(second) {}

  // These answer what the first says.
  U32 read(U32 address) override;
  void write(U32 address, U32 value) override;
  void doClocks(U32 clocks) override;
  void doFlip(U32 address, U64 bits) override;
  // Compares all that both hold.
  State state() override;
  std::string name() const override { return first_.name(); }

  U64 operations() const { return operations_; }
  // The first difference; empty while there is none.
  const std::string& difference() const { return difference_; }

 private:
  void compare(const char* what, U32 place, U64 first, U64 second);

  Switch& first_;
  Switch& second_;
  U64 operations_ = 0;
  std::string difference_;
};

// So many random accesses, clocks and faults, everything compared every 1,000. The first
// difference; empty without one.
std::string runLockstep(Lockstep& chip, U64 operations, U32 seed);

}  // namespace Rtl
