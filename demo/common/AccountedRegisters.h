// The chip's registers as the library sees them, with each write entered into the ledger.
#pragma once

#include <platform/MappedRegisters.h>

#include "demo/common/Ledger.h"

namespace Demo {

class AccountedRegisters : public Fru::HamImpl {
 public:
  // The ledger must outlive this.
  AccountedRegisters(Platform::MappedRegisters::Ptr registers, Ledger& ledger)
      : registers_(std::move(registers)), ledger_(ledger) {}

  void read(U32 address, U32* value) override { registers_->read(address, value); }
  // Writes a register and reads what it replaced in one atomic step: the ledger depends on it.
  void write(U32 address, U32 value) override;
  // Changes a register without the library's knowledge; the ledger records it as an error of the
  // chip.
  void damage(U32 address, U32 value);

 private:
  U32 exchange(U32 address, U32 value);

  const Platform::MappedRegisters::Ptr registers_;
  Ledger& ledger_;
};

}  // namespace Demo
