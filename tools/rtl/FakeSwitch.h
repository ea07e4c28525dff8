// The same chip as a fake in C++. It shares no rule with the RTL: its code words are checked with
// the rows of the parity matrix, and a wrong bit is found by trying each one.
#pragma once

#include "Switch.h"

namespace Rtl {

// What reading a word of the table finds.
struct Decoded {
  U64 word;  // as it is held from then on
  bool isCorrected;
  bool isUncorrectable;
};
U64 encode(U32 data);
Decoded decode(U64 word);

class FakeSwitch : public Switch {
 public:
  FakeSwitch();

  U32 read(U32 address) override;
  void write(U32 address, U32 value) override;
  void doClocks(U32 clocks) override;
  void doFlip(U32 address, U64 bits) override;
  State state() override { return state_; }
  std::string name() const override { return "the fake"; }

 private:
  void clock();
  void count(U32 counter, U32 events);
  U32 readTable(U32 entry);
  void writeRegister(U32 number, U32 value);

  State state_;
  U32 noise_ = 0xace1;
};

}  // namespace Rtl
