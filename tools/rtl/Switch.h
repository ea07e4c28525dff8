// The switch chip as a laboratory has it: what drivers reach over the bus, and what happens to it.
#pragma once

#include <Zint/Types.h>

#include <array>
#include <string>

namespace Rtl {

constexpr U32 registerCount = 64, tableWords = 1024;
constexpr U32 tableAddress = 0x1000;  // of the first word, in bytes; registers begin at 0

// The numbers of the registers that have a meaning; README.md says which.
enum Register : U32 {
  identity,
  scratch,
  control,
  strap,
  interrupt,
  errorEntry,
  clockCount,
  command,
  corrected,
  uncorrectable,
  packets,        // of five ports
  injected = 15,  // the last counter
  configuration,  // 40 of them
  ports = 56      // 8 of them
};
constexpr U32 identityValue = 0x5a17c40a, strapValue = 0x351, linkBit = 1u << 31;
// The latches of `interrupt`.
constexpr U32 latches = 0xffff, latchCorrected = 1, latchUncorrectable = 2, latchLink = 4;

// All that the chip holds. `totals`: everything its counters (corrected to injected) ever counted.
struct State {
  std::array<U64, tableWords> table{};  // 39 bits each
  std::array<U32, registerCount> registers{};
  std::array<U32, 8> totals{};
  friend bool operator==(const State&, const State&) = default;
};

class Switch {
 public:
  virtual ~Switch() = default;

  // One access of 32 bits at a byte address: one clock.
  virtual U32 read(U32 address) = 0;
  virtual void write(U32 address, U32 value) = 0;
  virtual void doClocks(U32 clocks) = 0;
  // Flips these bits of what is held at the address: one clock, and no access.
  virtual void doFlip(U32 address, U64 bits) = 0;
  virtual State state() = 0;
  virtual std::string name() const = 0;
};

}  // namespace Rtl
