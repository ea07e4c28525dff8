// The chip's registers as the library sees them, with each write entered into the ledger; and what
// can befall a chip: it is absent, it is reset, bits of it are stuck.
#pragma once

#include <platform/MappedRegisters.h>

#include "demo/common/Ledger.h"

namespace Demo {

class AccountedRegisters : public Fru::HamImpl {
 public:
  // The ledger must outlive this.
  AccountedRegisters(Platform::MappedRegisters::Ptr registers, Ledger& ledger)
      : registers_(std::move(registers)), ledger_(ledger) {}

  void read(U32 address, U32* value) override;
  // Writes a register and reads what it replaced in one atomic step: the ledger depends on it.
  void write(U32 address, U32 value) override;
  // Changes a register without the library's knowledge; the ledger records it as an error of the
  // chip.
  void damage(U32 address, U32 value);

  // An absent chip: reads give all ones, writes are lost.
  void isAbsentIs(bool isAbsent) { isAbsent_ = isAbsent; }
  // All registers of the tables are 0 afterwards.
  void doReset();
  // These bits of one register read 0 whatever is written, until others are given; 0 for none. A
  // bit that is free again keeps its 0 until somebody writes it.
  void stuckBitsAre(U32 address, U32 bits);

  // While the chip was absent.
  U32 absentReads() const { return absentReads_; }
  U32 writesLost() const { return writesLost_; }

 private:
  U32 exchange(U32 address, U32 value);

  const Platform::MappedRegisters::Ptr registers_;
  Ledger& ledger_;
  bool isAbsent_ = false;
  U32 absentReads_ = 0;
  U32 writesLost_ = 0;
  U32 stuckAddress_ = 0;
  U32 stuckBits_ = 0;
};

}  // namespace Demo
